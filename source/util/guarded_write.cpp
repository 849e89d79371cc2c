#include "util/guarded_write.h"

#include "os/os_calls.h"
#include "os/signal_set.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <unistd.h>

namespace {

using namespace ostrum;

// Holds back SIGXFSZ and SIGPIPE from this thread while it lives.
class write_signal_guard {
public:
    write_signal_guard()
    {
        // Pending before: it is the host's, which has it blocked, and stays.
        file_limit_was_pending_ = os::signal_pending(SIGXFSZ);
        closed_pipe_was_pending_ = os::signal_pending(SIGPIPE);
    }

    // Takes out the signal that a write failing with this errno has raised.
    void discard_raised(int error) const
    {
        if (error == EFBIG && !file_limit_was_pending_) {
            os::discard_pending_signal(SIGXFSZ);
        } else if (error == EPIPE && !closed_pipe_was_pending_) {
            os::discard_pending_signal(SIGPIPE);
        }
    }

private:
    const os::signals_blocked both_{SIGXFSZ, SIGPIPE};
    bool file_limit_was_pending_ = false;
    bool closed_pipe_was_pending_ = false;
};

// A standard stream may be a pipe that nobody empties. It is waited for, for a short time; then, until it
// takes something again, only tried.
class standard_stream {
public:
    explicit standard_stream(int fd) : fd_(fd) {}

    // As much as a pipe with room takes at once; a file gets everything in one write.
    [[nodiscard]] size_t part_of(size_t count) const
    {
        struct stat status {};
        const bool in_one = count <= PIPE_BUF || !is_one() ||
                            (os::status_of_file(fd_, status) == 0 && S_ISREG(status.st_mode));
        return in_one ? count : PIPE_BUF;
    }
    [[nodiscard]] bool would_block() const
    {
        constexpr int patience_ms = 100;
        if (!is_one()) {
            return false;
        }
        std::atomic<bool>& stuck = found_stuck[fd_];
        stuck = !os::takes_output(fd_, stuck ? 0 : patience_ms);
        return stuck;
    }

private:
    [[nodiscard]] bool is_one() const { return fd_ >= 0 && fd_ <= STDERR_FILENO; }

    static constinit std::atomic<bool> found_stuck[STDERR_FILENO + 1];
    const int fd_;
};
constinit std::atomic<bool> standard_stream::found_stuck[STDERR_FILENO + 1]{};

// 0, or the errno of the write that failed.
int write_all(int fd, const char* bytes, size_t count, size_t& done)
{
    const standard_stream stream(fd);
    const size_t part = stream.part_of(count);
    while (done < count) {
        if (stream.would_block()) {
            return EAGAIN;
        }
        const ssize_t written = os::write_file(fd, bytes + done, std::min(part, count - done));
        if (written > 0) {
            done += static_cast<size_t>(written);
        } else if (written == 0) {
            return EIO; // a device that takes nothing would be tried for ever
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

int write_all_with_signals_held(int fd, const void* bytes, size_t count, size_t& done)
{
    const write_signal_guard guard;
    const int error = write_all(fd, static_cast<const char*>(bytes), count, done);
    guard.discard_raised(error);
    return error;
}

} // namespace

bool ostrum::write_all_guarded(int fd, const void* bytes, size_t count, size_t* written)
{
    size_t done = 0;
    const int error = write_all_with_signals_held(fd, bytes, count, done);
    if (written != nullptr) {
        *written = done;
    }
    if (error != 0) {
        errno = error;
    }
    return error == 0;
}
