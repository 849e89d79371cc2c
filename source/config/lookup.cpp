#include "config/lookup.h"

#include "host_access/host_memory.h"
#include "os/no_cancellation.h"
#include "util/diagnostics.h"
#include "util/resources.h"
#include "util/text.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace ostrum;

namespace {

constexpr const char* program_section = "ostrum";
constexpr size_t home_path_bytes = 1024;

bool file_present(const char* path)
{
    return file_exists(path) == 1;
}

bool system_file_present()
{
    return file_present("./qel.conf") || file_present("/etc/qel.conf");
}

bool home_file_present()
{
    const char* home = os::environment("QEL_HOME");
    if (home == nullptr) {
        return false;
    }
    char path[home_path_bytes];
    snprintf(path, sizeof(path), "%s/config/qel.conf", home);
    return file_present(path);
}

// The host's value of a type; null when it has none.
template <typename Value>
host_ptr<Value> ask_host(const char* key, int32_t type)
{
    void* value = nullptr;
    int32_t error = 0;
    const os::no_cancellation guard;
    qel_conf(program_section, key, type, &value, &error);
    return host_ptr<Value>{error == 0 ? static_cast<Value*>(value) : nullptr};
}

heap_ptr<char> environment_name(const char* key)
{
    heap_ptr<char> name = heap_text(key);
    str_toupper(name.get());
    return name;
}

// The leading number of a text is accepted when nothing or a white space follows it.
bool parse_number(const char* text, int32_t& number)
{
    char* behind = nullptr;
    errno = 0;
    const long parsed = strtol(text, &behind, 0);
    if (errno != 0 || behind == text ||
        (*behind != '\0' && isspace(static_cast<unsigned char>(*behind)) == 0)) {
        return false;
    }
    number = static_cast<int32_t>(parsed); // cut to 32 bits: 4294967297 is 1 (kept)
    return true;
}

int32_t environment_number(const char* key)
{
    const heap_ptr<char> name = environment_name(key);
    const char* value = name ? os::environment(name.get()) : nullptr;
    if (value == nullptr) {
        return 0;
    }
    int32_t number = 0;
    if (!parse_number(value, number)) {
        // prefix kept
        err_print("__perf_conf_int : ERROR : variable[%s] value[%s] is not a valid number\n", name.get(),
                  value);
    }
    return number;
}

} // namespace

int32_t file_exists(const char* path)
{
    struct stat status {};
    if (os::status_of_path(text_or_empty(path), status) != 0) {
        return 0;
    }
    return S_ISDIR(status.st_mode) ? -1 : 1;
}

char* __perfconf_str(const char* key)
{
    const char* name = text_or_empty(key);
    if (qel_conf != nullptr && system_file_present()) {
        if (const host_ptr<char> value = ask_host<char>(name, QEL_TYPE_STR)) {
            return os::duplicate(value.get());
        }
    }
    const heap_ptr<char> variable = environment_name(name);
    const char* value = variable ? os::environment(variable.get()) : nullptr;
    return value != nullptr ? os::duplicate(value) : nullptr;
}

int32_t __perfconf_int(const char* key)
{
    const char* name = text_or_empty(key);
    if (qel_conf != nullptr && (system_file_present() || home_file_present())) {
        if (const host_ptr<int32_t> value = ask_host<int32_t>(name, QEL_TYPE_INT)) {
            return *value;
        }
    }
    return environment_number(name);
}

int32_t __perfconf_bool(const char* key)
{
    const heap_ptr<char> text{__perfconf_str(key)};
    if (!text) {
        return 0;
    }
    const char* value = text.get();
    const bool is_true =
        strcasecmp(value, "yes") == 0 || strcasecmp(value, "y") == 0 || strcmp(value, "1") == 0;
    return is_true ? 1 : 0;
}

void __perfconf_free(char** text)
{
    if (text != nullptr) {
        os::release(*text);
        *text = nullptr;
    }
}
