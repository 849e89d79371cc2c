// The rules of the settings that say where the files are.
#include "startup/setting_checks.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "config/lookup.h"
#include "config/setting_text.h"
#include "os/os_calls.h"
#include "perf_log/buckets/bucket_file.h"
#include "process_state/process_state.h"
#include "startup/data_file_name.h"
#include "util/diagnostics.h"

namespace ostrum {

namespace {

constexpr char here[] = ".";
constexpr char default_data_file[] = "ostrum_data.dat";

bool is_directory(const char* path)
{
    struct stat status {};
    if (os::status_of_path(path, status) != 0) {
        err_print("file_type : failed stat of file[%s] - errno[%d](%s)\n", path, errno,
                  strerror(errno)); // prefix kept
        return false;
    }
    return S_ISDIR(status.st_mode);
}

void report_unusable_buckets(const char* path)
{
    err_print("perf_log_init : failed loading bucket list [%s]\n", path);
    err_print("perf_log_init : no opcode buckets will be used - normal tracing will remain enabled\n");
}

} // namespace

// In a child that was forked in the midst of start-up, which goes through it again, the directory is set: its
// text is never freed, so that a second one would be lost.
bool store_log_directory(const startup_step& step, settings& out)
{
    if (out.log_directory != nullptr) {
        return true;
    }
    setting_text configured = configured_text(step.key);
    const char* path = has_text(configured) ? configured.get() : here;
    if (!is_directory(path)) {
        err_print("perf_log_init : OSTRUM_LOGDIR[%s] - invalid directory\n", path);
        return false;
    }
    out.log_directory = path == here ? here : configured.release();
    return true;
}

// A file that cannot be used costs the buckets, not the tracing.
bool load_opcode_buckets(const startup_step& step, settings&)
{
    const setting_text path = configured_text(step.key);
    const bool defined = has_text(path);
    if (defined && read_opcode_buckets(path.get()) < 0) {
        report_unusable_buckets(path.get());
    }
    if (debug_on(debug_general)) {
        debug_print("perf_log_init : ostrum_opcode_bucket_file[%s][%s] #opcodes[%d]\n",
                    defined ? path.get() : "", defined ? "defined" : "none", opcode_bucket_count());
    }
    return true;
}

bool store_single_file(const startup_step& step, settings& out)
{
    const setting_text prefix = configured_text(step.key);
    out.single_file = has_text(prefix);
    if (out.single_file) {
        snprintf(out.single_file_base, sizeof(out.single_file_base), "%s/%s.%u", out.log_directory,
                 prefix.get(), static_cast<uint32_t>(process_id()));
    }
    return true;
}

bool store_single_file_limit(const startup_step& step, settings& out)
{
    if (!out.single_file) {
        return true;
    }
    const int32_t limit_bytes = __perfconf_int(step.key);
    out.single_file_limit_bytes = limit_bytes != 0 ? limit_bytes : settings{}.single_file_limit_bytes;
    if (limit_bytes == 0 && debug_on(debug_general)) {
        debug_print("perf_log_init : ostrum_log_max_single_file_size[%s][%d]\n", "default",
                    out.single_file_limit_bytes);
    }
    return true;
}

bool store_data_file_name(const startup_step& step, settings& out)
{
    const setting_text configured = configured_text(step.key);
    const char* name_template = has_text(configured) ? configured.get() : default_data_file;
    if (!build_data_file_name(name_template, out.data_file_name)) {
        err_print("perf_log_init : failed building data file name from[%s]\n", name_template);
        return false;
    }
    return true;
}

bool store_data_file_reset(const startup_step& step, settings& out)
{
    out.data_file_reset = __perfconf_bool(step.key) != 0;
    return true;
}

} // namespace ostrum
