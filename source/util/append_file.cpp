#include "util/append_file.h"

#include <cerrno>

namespace ostrum {

unique_fd open_for_appending(const char* path)
{
    constexpr mode_t mode = 0666; // less the process's umask
    unique_fd file{
        os::open_file(path, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, mode)};
    struct stat status {};
    if (file && (os::status_of_file(file.get(), status) != 0 || !S_ISREG(status.st_mode))) {
        file.reset();
        errno = EINVAL;
    }
    return file;
}

} // namespace ostrum
