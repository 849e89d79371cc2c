#include "perf_log/output/file_rename.h"

#include <cerrno>
#include <cstring>

#include "data_file/locks.h"
#include "os/os_calls.h"
#include "util/diagnostics.h"
#include "util/text.h"

using namespace ostrum;

namespace {

// Anything of that name, a directory or a link to nowhere included.
bool exists(const char* path)
{
    struct stat status {};
    return os::status_of_link(path, status) == 0;
}

int32_t rename_under(rt_info* handle, data_file_lock_type lock, const char* source, const char* target)
{
    if (check_file_rename(source, target) != 0) {
        return 0;
    }
    const data_file_guard guard(handle, lock);
    return file_rename(source, target);
}

} // namespace

int32_t check_file_rename(const char* source, const char* target)
{
    if (text_or_empty(source)[0] == '\0') {
        err_print("check_file_rename: source filename is empty\n");
        return -1;
    }
    if (text_or_empty(target)[0] == '\0') {
        err_print("check_file_rename: target filename is empty\n");
        return -2;
    }
    if (!exists(source)) {
        err_print("check_file_rename: source filename[%s] doesn't exist\n", source);
        return -3;
    }
    if (exists(target)) {
        err_print("check_file_rename: target filename[%s] already exists\n", target);
        return -4;
    }
    return 0;
}

int32_t file_rename(const char* source, const char* target)
{
    if (os::rename_path(source, target) != 0) {
        err_print("file_rename: failed renaming[%s] -> [%s] - errno[%d](%s)\n", source, target, errno,
                  strerror(errno));
        return -1;
    }
    return 0;
}

int32_t __rename_trace_file(rt_info* handle, const char* source, const char* target)
{
    return rename_under(handle, DATA_FILE_LOCK_TRACE, source, target);
}

int32_t __rename_alarm_file(rt_info* handle, const char* source, const char* target)
{
    return rename_under(handle, DATA_FILE_LOCK_ALARM, source, target);
}
