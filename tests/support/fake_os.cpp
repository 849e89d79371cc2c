#include "support/fake_os.h"

// The seam twice: as the library calls it (ostrum::os, defined here) and as the real bodies, which the
// build compiles a second time under the name ostrum::real_os.
#define os real_os
#include "os/os_calls.h"
#undef os
#undef OSTRUM_OS_OS_CALLS_H
#include "os/os_calls.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include <unistd.h>

namespace fake_os {

namespace {

struct fault {
    std::atomic<int64_t> calls{0};
    int64_t fail_at = 0; // 0 = never
    int error = 0;
    bool and_after = false;
};

std::array<fault, static_cast<size_t>(call::count_of_calls)> faults;
std::atomic<int64_t> frozen_tv{-1};
std::atomic<int64_t> frozen_monotonic_tv{-1};
std::atomic<int64_t> blocks{0};
std::mutex environment_mutex;
std::map<std::string, std::optional<std::string>> environment_overrides;

fault& of(call which)
{
    return faults.at(static_cast<size_t>(which));
}

} // namespace

// Counts the call; true, with errno set, when this one is to fail.
static bool fault_due(call which)
{
    fault& f = of(which);
    const int64_t n = ++f.calls;
    if (f.fail_at == 0 || n < f.fail_at || (n > f.fail_at && !f.and_after)) {
        return false;
    }
    errno = f.error;
    return true;
}

void reset()
{
    for (fault& f : faults) {
        f.calls = 0;
        f.fail_at = 0;
    }
    frozen_tv = -1;
    frozen_monotonic_tv = -1;
    blocks = 0;
    const std::lock_guard<std::mutex> guard(environment_mutex);
    environment_overrides.clear();
}

void fail(call which, int64_t nth, int error, bool and_after)
{
    fault& f = of(which);
    f.fail_at = f.calls + nth;
    f.error = error;
    f.and_after = and_after;
}

int64_t calls_made(call which)
{
    return of(which).calls;
}

void freeze_clock(int64_t realtime_tv)
{
    frozen_tv = realtime_tv;
}

void advance_clock(int64_t by_tv)
{
    frozen_tv += by_tv;
}

void freeze_monotonic()
{
    frozen_monotonic_tv = 0;
}

void advance_monotonic(int64_t by_tv)
{
    frozen_monotonic_tv += by_tv;
}

int64_t monotonic_tv()
{
    return frozen_monotonic_tv;
}

void set_environment(const char* name, const char* value)
{
    const std::lock_guard<std::mutex> guard(environment_mutex);
    environment_overrides[name] = value ? std::optional<std::string>(value) : std::nullopt;
}

int64_t blocks_in_use()
{
    return blocks;
}

std::string captured_stderr(const std::function<void()>& body)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> capture(tmpfile(), fclose);
    const int real_stderr = dup(STDERR_FILENO);
    dup2(fileno(capture.get()), STDERR_FILENO);
    body();
    dup2(real_stderr, STDERR_FILENO);
    close(real_stderr);
    rewind(capture.get());
    std::string text;
    for (int c = getc(capture.get()); c != EOF; c = getc(capture.get())) {
        text.push_back(static_cast<char>(c));
    }
    return text;
}

} // namespace fake_os

using fake_os::call;
using fake_os::fault_due;

namespace ostrum::os {

namespace {

constexpr int64_t ns_per_s = 1'000'000'000;

template <typename Pointer>
Pointer counted(Pointer block)
{
    ++fake_os::blocks;
    return block;
}

int64_t shown(const std::atomic<int64_t>& frozen_tv, int64_t (*real)())
{
    const int64_t frozen = frozen_tv;
    return frozen >= 0 ? frozen : real();
}

} // namespace

// ---- The clock, the heap and the environment: what a test has set, or the real ones ----

int64_t realtime_ns()
{
    return shown(fake_os::frozen_tv, real_os::realtime_ns);
}

int64_t monotonic_ns()
{
    return shown(fake_os::frozen_monotonic_tv, real_os::monotonic_ns);
}

bool wall_clock(timeval& now)
{
    if (fault_due(call::wall_clock)) {
        return false;
    }
    const int64_t now_tv = realtime_ns();
    now = {static_cast<time_t>(now_tv / ns_per_s), static_cast<suseconds_t>(now_tv % ns_per_s / 1000)};
    return true;
}

time_t wall_seconds()
{
    return static_cast<time_t>(realtime_ns() / ns_per_s);
}

void sleep_ns(int64_t duration_tv)
{
    if (fake_os::frozen_monotonic_tv >= 0) {
        fake_os::advance_monotonic(duration_tv);
    } else {
        real_os::sleep_ns(duration_tv);
    }
}

int lock_mutex_within(pthread_mutex_t& mutex, int64_t duration_tv)
{
    if (fake_os::frozen_monotonic_tv < 0) {
        return real_os::lock_mutex_within(mutex, duration_tv);
    }
    const int result = pthread_mutex_trylock(&mutex);
    if (result == 0) {
        return 0;
    }
    fake_os::advance_monotonic(duration_tv);
    return ETIMEDOUT;
}

void* allocate_zeroed(size_t bytes)
{
    return fault_due(call::allocate) ? nullptr : counted(real_os::allocate_zeroed(bytes));
}

void* reallocate(void* block, size_t bytes)
{
    if (fault_due(call::allocate)) {
        return nullptr;
    }
    fake_os::blocks += block == nullptr ? 1 : 0;
    return real_os::reallocate(block, bytes);
}

char* duplicate(const char* text)
{
    return fault_due(call::allocate) ? nullptr : counted(real_os::duplicate(text));
}

void release(void* block)
{
    fake_os::blocks -= block == nullptr ? 0 : 1;
    real_os::release(block);
}

const char* environment(const char* name)
{
    const std::lock_guard<std::mutex> guard(fake_os::environment_mutex);
    const auto found = fake_os::environment_overrides.find(name);
    if (found == fake_os::environment_overrides.end()) {
        return real_os::environment(name);
    }
    return found->second ? found->second->c_str() : nullptr;
}

// ---- Calls that fail when the test wants it, with `failure` and errno ----

#define FAILING(kind, result, name, failure, parameters, arguments)                                          \
    result name parameters                                                                                   \
    {                                                                                                        \
        return fault_due(call::kind) ? (failure) : real_os::name arguments;                                  \
    }

// clang-format off
FAILING(local_time, bool, local_time, false, (time_t seconds, tm& fields), (seconds, fields))
FAILING(open_file, int, open_file, -1, (const char* path, int flags, mode_t mode), (path, flags, mode))
FAILING(read_file, ssize_t, read_file, -1, (int fd, void* bytes, size_t count), (fd, bytes, count))
FAILING(seek_file, off_t, seek_file, -1, (int fd, off_t offset, int whence), (fd, offset, whence))
FAILING(lock_range, int, lock_range, -1, (int fd, int command, short type, off_t offset, off_t length),
        (fd, command, type, offset, length))
FAILING(reserve_blocks, int, reserve_blocks, errno, (int fd, off_t offset, off_t length), (fd, offset, length))
FAILING(reserve_blocks, int, reserve_blocks_in_use, errno, (int fd, off_t at, off_t length), (fd, at, length))
FAILING(status_of_path, int, status_of_path, -1, (const char* path, struct stat& status), (path, status))
FAILING(status_of_path, int, status_of_link, -1, (const char* path, struct stat& status), (path, status))
FAILING(status_of_file, int, status_of_file, -1, (int fd, struct stat& status), (fd, status))
FAILING(unlink_path, int, unlink_path, -1, (const char* path), (path))
FAILING(rename_path, int, rename_path, -1, (const char* from, const char* to), (from, to))
FAILING(map_shared, void*, map_shared, nullptr, (size_t bytes, int fd), (bytes, fd))
FAILING(resource_usage, int, resource_usage, -1, (rusage& usage), (usage))
FAILING(install_signal_action, int, install_signal_action, -1,
        (int signal_number, const struct sigaction& action), (signal_number, action))
FAILING(wait_for_descriptors, int, wait_for_descriptors, -1,
        (int n, fd_set* read_set, fd_set* write_set, fd_set* except_set, timeval* timeout),
        (n, read_set, write_set, except_set, timeout))
FAILING(at_exit, int, at_exit, -1, (void (*handler)()), (handler))
FAILING(at_fork_in_child, int, at_fork_in_child, -1, (void (*handler)()), (handler))
FAILING(create_thread, int, create_thread, EAGAIN,
        (pthread_t& thread, void* (*body)(void*), void* argument), (thread, body, argument))
FAILING(barrier, bool, register_barrier_in_all_threads, false, (), ())
FAILING(barrier, bool, barrier_in_all_threads, false, (), ())
FAILING(create_thread_key, int, create_thread_key, EAGAIN,
        (pthread_key_t& key, void (*destructor)(void*)), (key, destructor))
// clang-format on

int close_file(int fd)
{
    const int result = real_os::close_file(fd); // the descriptor is gone even where close fails
    return fault_due(call::close_file) ? -1 : result;
}

int unmap(void* address, size_t bytes)
{
    const int result = real_os::unmap(address, bytes);
    return fault_due(call::unmap) ? -1 : result;
}

// Diagnostics do not fail: a test reads them.
ssize_t write_file(int fd, const void* bytes, size_t count)
{
    return fd != STDERR_FILENO && fault_due(call::write_file) ? -1 : real_os::write_file(fd, bytes, count);
}

// ---- Calls that are always the real ones ----

#define REAL(result, name, parameters, arguments)                                                            \
    result name parameters                                                                                   \
    {                                                                                                        \
        return real_os::name arguments;                                                                      \
    }

// clang-format off
REAL(bool, takes_output, (int fd, int wait_ms), (fd, wait_ms))
REAL(int, cut_file, (int fd, off_t length), (fd, length))
REAL(int, flush_stream, (FILE* stream), (stream))
REAL(int32_t, process_id, (), ())
REAL(int, descriptor_table_size, (), ())
REAL(long, system_value, (int name), (name))
REAL(int, signal_mask, (int how, const sigset_t* set, sigset_t* old), (how, set, old))
REAL(bool, signal_pending, (int signal_number), (signal_number))
REAL(void, discard_pending_signal, (int signal_number), (signal_number))
REAL(void*, global_symbol, (const char* name), (name))
REAL(int, join_thread, (pthread_t thread), (thread))
REAL(int, join_thread_within, (pthread_t thread, int64_t duration_tv), (thread, duration_tv))
// clang-format on

void end_process(int status)
{
    real_os::end_process(status);
}

} // namespace ostrum::os
