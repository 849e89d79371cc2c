#include "perf_log/flush/idle_select.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "config/settings.h"
#include "os/os_calls.h"
#include "perf_log/flush/timed_flush.h"
#include "process_state/process_state.h"
#include "util/clock_checks.h"
#include "util/resources.h"
#include "util/time_value.h"

namespace ostrum {

namespace {

// When the timed flush runs next. Shared by all threads without a lock: a lost update costs a check too
// many or too few.
constinit std::atomic<int64_t> next_check_tv{0};

void run_timed_flush_when_due()
{
    if (initialised_state() < 1 || decided_start_mode() != start_mode::full) {
        return;
    }
    const library_scope scope;
    const int64_t now_tv = os::realtime_ns();
    const int64_t next_tv = next_check_tv.load(std::memory_order_relaxed);
    if (!scope.entered() || !is_due_by_clock(now_tv, next_tv, tv_per_s)) {
        return;
    }
    timeout_handler_func("select_timeout");
    next_check_tv.store(now_tv + tv_per_s, std::memory_order_relaxed);
}

// How many descriptors the kernel looks at when a caller asks for n: no more than its table has room for.
// Callers pass an ordinary set with the number of all descriptors that there could be.
int examined_descriptors(int n)
{
    const int table_size = n > FD_SETSIZE ? os::descriptor_table_size() : n;
    return table_size > 0 ? std::min(n, table_size) : n;
}

// A copy of one descriptor set, of as many words as n descriptors need: programs with more than
// FD_SETSIZE descriptors bring larger sets.
class saved_set {
public:
    saved_set(fd_set* set, int n) : set_(set), bytes_(bytes_for(n))
    {
        if (set_ == nullptr) {
            return;
        }
        if (bytes_ > sizeof(small_)) {
            large_ = heap_zeroed<char>(bytes_);
        }
        if (char* copy = bytes()) {
            memcpy(copy, set_, bytes_);
        }
    }
    [[nodiscard]] bool complete() const { return set_ == nullptr || bytes_ <= sizeof(small_) || large_; }
    void restore()
    {
        if (set_ != nullptr) {
            memcpy(set_, bytes(), bytes_);
        }
    }

private:
    static size_t bytes_for(int n)
    {
        constexpr size_t bits = 8 * sizeof(fd_mask);
        return n <= 0 ? 0 : (static_cast<size_t>(n) + bits - 1) / bits * sizeof(fd_mask);
    }
    char* bytes() { return bytes_ > sizeof(small_) ? large_.get() : small_; }

    fd_set* set_;
    size_t bytes_;
    char small_[sizeof(fd_set)];
    heap_ptr<char> large_;
};

struct wait_request {
    int n;
    fd_set* read_set;
    fd_set* write_set;
    fd_set* except_set;
    timeval* timeout; // the caller's: the kernel leaves the time left in it
};

int wait_once(const wait_request& request)
{
    timeval one_second{1, 0};
    timeval* timeout = request.timeout;
    if (timeout == nullptr && configured().auto_flush != 0) {
        timeout = &one_second;
    }
    return os::wait_for_descriptors(request.n, request.read_set, request.write_set, request.except_set,
                                    timeout);
}

int wait_until_ready(const wait_request& request)
{
    const int saved = examined_descriptors(request.n);
    saved_set saved_read(request.read_set, saved);
    saved_set saved_write(request.write_set, saved);
    saved_set saved_except(request.except_set, saved);
    if (!saved_read.complete() || !saved_write.complete() || !saved_except.complete()) {
        errno = ENOMEM;
        return -1;
    }
    for (;;) {
        run_timed_flush_when_due();
        const int result = wait_once(request);
        const bool interrupted = result < 0 && errno == EINTR;
        if (!interrupted && (result != 0 || request.timeout != nullptr)) {
            return result;
        }
        saved_read.restore();
        saved_write.restore();
        saved_except.restore();
    }
}

} // namespace
} // namespace ostrum

int __ostrum_select(int n, fd_set* read_set, fd_set* write_set, fd_set* except_set, timeval* timeout)
{
    return ostrum::wait_until_ready({n, read_set, write_set, except_set, timeout});
}
