#include "util/guarded_write.h"

#include "os/os_calls.h"

#include <cerrno>

namespace {

using namespace ostrum;

// Holds back SIGXFSZ and SIGPIPE from this thread while it lives.
class write_signal_guard {
public:
    write_signal_guard()
    {
        sigset_t both;
        sigemptyset(&both);
        sigaddset(&both, SIGXFSZ);
        sigaddset(&both, SIGPIPE);
        os::signal_mask(SIG_BLOCK, &both, &mask_before_);
        // Pending before: it is the host's, which has it blocked, and stays.
        file_limit_was_pending_ = os::signal_pending(SIGXFSZ);
        closed_pipe_was_pending_ = os::signal_pending(SIGPIPE);
    }
    ~write_signal_guard() { os::signal_mask(SIG_SETMASK, &mask_before_, nullptr); }
    write_signal_guard(const write_signal_guard&) = delete;
    write_signal_guard& operator=(const write_signal_guard&) = delete;

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
    sigset_t mask_before_{};
    bool file_limit_was_pending_ = false;
    bool closed_pipe_was_pending_ = false;
};

// 0, or the errno of the write that failed.
int write_all(int fd, const char* bytes, size_t count, size_t& done)
{
    while (done < count) {
        const ssize_t written = os::write_file(fd, bytes + done, count - done);
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
