#include "flist_trace/flist_file.h"

#include <cstdio>
#include <unistd.h>

#include "config/settings.h"
#include "perf_log/aggregation/file_names.h"
#include "util/append_file.h"
#include "util/diagnostics.h"

namespace ostrum {

namespace {

void write_header(const flist_log& log)
{
    static constexpr const char* columns[][4] = {
        {"Timestamp", "Elapsed", "Opflags", "Opcode"},
        {"---------", "-------", "-------", "------"}}; // kept: shorter than the columns
    append_buffer text = append_buffer_for(log);
    for (const auto& column : columns) {
        text.add_formatted("%-26.26s  %15s  %10s  %-.80s\n", column[0], column[1], column[2], column[3]);
    }
    text.finish();
}

} // namespace

bool is_open(const flist_log& log)
{
    return log.to_stdout || static_cast<bool>(log.file);
}

append_buffer append_buffer_for(const flist_log& log)
{
    if (log.to_stdout) {
        os::flush_stream(stdout);
    }
    return append_buffer(log.to_stdout ? STDOUT_FILENO : log.file.get());
}

} // namespace ostrum

using namespace ostrum;

void open_flist_file(log_context* context)
{
    flist_log& log = context->flist_trace;
    if (configured().flist_log_to_stdout != 0) {
        log.to_stdout = true;
        return;
    }
    const trace_source& source = context->trace;
    char path[path_bytes];
    const bool named = own_path(path, source.pid, source.tid,
                                {source.period.start_text, source.period.end_text}, flist_extension);
    log.file = named ? open_for_appending(path) : unique_fd{};
    if (!log.file) {
        err_print("open_flist_file : failed opening flist log file[%s] for pid[%d] tid[%lu]\n", path,
                  source.pid, source.tid);
    } else if ((context->flist_mode & flist_tree_lines) != 0) {
        write_header(log);
    }
}
