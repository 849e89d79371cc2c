#include "util/append_file.h"

#include <cerrno>

#include "util/errno_keeper.h"

namespace ostrum {

unique_fd open_for_appending(const char* path)
{
    constexpr mode_t mode = 0666; // less the process's umask
    unique_fd file{
        os::open_file(path, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, mode)};
    struct stat status {};
    // A second name of the file may be one that somebody has planted for a file elsewhere.
    if (file &&
        (os::status_of_file(file.get(), status) != 0 || !S_ISREG(status.st_mode) || status.st_nlink > 1)) {
        file.reset();
        errno = EINVAL;
    }
    return file;
}

bool ends_within_line(const char* path)
{
    const errno_keeper keeper;
    const unique_fd file{os::open_file(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0)};
    char last = '\n';
    return file && os::seek_file(file.get(), -1, SEEK_END) >= 0 && os::read_file(file.get(), &last, 1) == 1 &&
           last != '\n';
}

} // namespace ostrum
