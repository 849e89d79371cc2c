#include "perf_log/buckets/config_lines.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ostrum {

bool config_lines::open(const char* path)
{
    unique_fd fd{os::open_file(path, O_RDONLY | O_NONBLOCK | O_NOCTTY, 0)};
    struct stat status {};
    if (!fd || os::status_of_file(fd.get(), status) != 0) {
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return false;
    }
    unread_bytes_ = status.st_size;
    fd_ = static_cast<unique_fd&&>(fd);
    return true;
}

bool config_lines::fill()
{
    if (unread_bytes_ == 0 || error_ != 0) {
        return false;
    }
    const size_t wanted = static_cast<size_t>(std::min<int64_t>(unread_bytes_, sizeof(block_)));
    ssize_t count = -1;
    do {
        count = os::read_file(fd_.get(), block_, wanted);
    } while (count < 0 && errno == EINTR);
    error_ = count < 0 ? errno : 0;
    used_ = 0;
    filled_ = count > 0 ? static_cast<size_t>(count) : 0;
    unread_bytes_ -= static_cast<int64_t>(filled_);
    return filled_ > 0;
}

bool config_lines::next(char* out, size_t out_bytes)
{
    size_t length = 0;
    bool ended = false;
    bool any = false;
    while (!ended && (used_ < filled_ || fill())) {
        any = true;
        const char* begin = block_ + used_;
        const char* end = static_cast<const char*>(memchr(begin, '\n', filled_ - used_));
        ended = end != nullptr;
        const size_t count = ended ? static_cast<size_t>(end - begin) : filled_ - used_;
        const size_t kept = std::min(count, out_bytes - 1 - length);
        memcpy(out + length, begin, kept);
        length += kept;
        used_ += count + (ended ? 1 : 0);
    }
    out[length] = '\0';
    if (!any || error_ != 0) { // half a line is none
        return false;
    }
    ++line_number_;
    return true;
}

} // namespace ostrum
