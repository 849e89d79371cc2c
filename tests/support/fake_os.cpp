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
FILE* stderr_capture = nullptr;
int real_stderr = -1;

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

void start_stderr_capture()
{
    stderr_capture = tmpfile();
    real_stderr = dup(STDERR_FILENO);
    dup2(fileno(stderr_capture), STDERR_FILENO);
}

std::string finish_stderr_capture()
{
    dup2(real_stderr, STDERR_FILENO);
    close(real_stderr);
    std::string text;
    rewind(stderr_capture);
    for (int c = getc(stderr_capture); c != EOF; c = getc(stderr_capture)) {
        text.push_back(static_cast<char>(c));
    }
    fclose(stderr_capture);
    return text;
}

} // namespace fake_os

using fake_os::call;
using fake_os::fault_due;

namespace ostrum::os {

namespace {
constexpr int64_t ns_per_s = 1'000'000'000;
}

int64_t realtime_ns()
{
    const int64_t frozen = fake_os::frozen_tv;
    return frozen >= 0 ? frozen : real_os::realtime_ns();
}

int64_t monotonic_ns()
{
    const int64_t frozen = fake_os::frozen_monotonic_tv;
    return frozen >= 0 ? frozen : real_os::monotonic_ns();
}

bool wall_clock(timeval& now)
{
    if (fault_due(call::wall_clock)) {
        return false;
    }
    const int64_t frozen = fake_os::frozen_tv;
    if (frozen < 0) {
        return real_os::wall_clock(now);
    }
    now = {static_cast<time_t>(frozen / ns_per_s), static_cast<suseconds_t>(frozen % ns_per_s / 1000)};
    return true;
}

time_t wall_seconds()
{
    const int64_t frozen = fake_os::frozen_tv;
    return frozen >= 0 ? static_cast<time_t>(frozen / ns_per_s) : real_os::wall_seconds();
}

bool local_time(time_t seconds, tm& fields)
{
    return !fault_due(call::local_time) && real_os::local_time(seconds, fields);
}

void sleep_ns(int64_t duration_tv)
{
    if (fake_os::frozen_monotonic_tv >= 0) {
        fake_os::advance_monotonic(duration_tv);
    } else {
        real_os::sleep_ns(duration_tv);
    }
}

void* allocate_zeroed(size_t bytes)
{
    if (fault_due(call::allocate)) {
        return nullptr;
    }
    ++fake_os::blocks;
    return real_os::allocate_zeroed(bytes);
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
    if (fault_due(call::allocate)) {
        return nullptr;
    }
    ++fake_os::blocks;
    return real_os::duplicate(text);
}

void release(void* block)
{
    fake_os::blocks -= block == nullptr ? 0 : 1;
    real_os::release(block);
}

int open_file(const char* path, int flags, mode_t mode)
{
    return fault_due(call::open_file) ? -1 : real_os::open_file(path, flags, mode);
}

int close_file(int fd)
{
    const int result = real_os::close_file(fd);
    return fault_due(call::close_file) ? -1 : result;
}

ssize_t read_file(int fd, void* bytes, size_t count)
{
    return fault_due(call::read_file) ? -1 : real_os::read_file(fd, bytes, count);
}

ssize_t write_file(int fd, const void* bytes, size_t count)
{
    // Diagnostics are not faulted: a test reads them.
    if (fd != STDERR_FILENO && fault_due(call::write_file)) {
        return -1;
    }
    return real_os::write_file(fd, bytes, count);
}

bool takes_output(int fd, int wait_ms)
{
    return real_os::takes_output(fd, wait_ms);
}

off_t seek_file(int fd, off_t offset, int whence)
{
    return fault_due(call::seek_file) ? -1 : real_os::seek_file(fd, offset, whence);
}

int cut_file(int fd, off_t length)
{
    return real_os::cut_file(fd, length);
}

int reserve_blocks(int fd, off_t offset, off_t length)
{
    return fault_due(call::reserve_blocks) ? errno : real_os::reserve_blocks(fd, offset, length);
}

int reserve_blocks_in_use(int fd, off_t offset, off_t length)
{
    return fault_due(call::reserve_blocks) ? errno : real_os::reserve_blocks_in_use(fd, offset, length);
}

int flush_stream(FILE* stream)
{
    return real_os::flush_stream(stream);
}

int lock_range(int fd, int command, struct flock& range)
{
    return real_os::lock_range(fd, command, range);
}

int status_of_path(const char* path, struct stat& status)
{
    return fault_due(call::status_of_path) ? -1 : real_os::status_of_path(path, status);
}

int status_of_link(const char* path, struct stat& status)
{
    return fault_due(call::status_of_path) ? -1 : real_os::status_of_link(path, status);
}

int status_of_file(int fd, struct stat& status)
{
    return fault_due(call::status_of_file) ? -1 : real_os::status_of_file(fd, status);
}

int unlink_path(const char* path)
{
    return fault_due(call::unlink_path) ? -1 : real_os::unlink_path(path);
}

int rename_path(const char* from, const char* to)
{
    return fault_due(call::rename_path) ? -1 : real_os::rename_path(from, to);
}

void* map_shared(size_t bytes, int fd)
{
    return fault_due(call::map_shared) ? nullptr : real_os::map_shared(bytes, fd);
}

int unmap(void* address, size_t bytes)
{
    const int result = real_os::unmap(address, bytes);
    return fault_due(call::unmap) ? -1 : result;
}

int32_t process_id()
{
    return real_os::process_id();
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

int resource_usage(rusage& usage)
{
    return fault_due(call::resource_usage) ? -1 : real_os::resource_usage(usage);
}

int descriptor_table_size()
{
    return real_os::descriptor_table_size();
}

long system_value(int name)
{
    return real_os::system_value(name);
}

int install_signal_action(int signal_number, const struct sigaction& action)
{
    return fault_due(call::install_signal_action) ? -1
                                                  : real_os::install_signal_action(signal_number, action);
}

int signal_mask(int how, const sigset_t* set, sigset_t* old)
{
    return real_os::signal_mask(how, set, old);
}

bool signal_pending(int signal_number)
{
    return real_os::signal_pending(signal_number);
}

void discard_pending_signal(int signal_number)
{
    real_os::discard_pending_signal(signal_number);
}

int wait_for_descriptors(int n, fd_set* read_set, fd_set* write_set, fd_set* except_set, timeval* timeout)
{
    if (fault_due(call::wait_for_descriptors)) {
        return -1;
    }
    return real_os::wait_for_descriptors(n, read_set, write_set, except_set, timeout);
}

void* global_symbol(const char* name)
{
    return real_os::global_symbol(name);
}

int at_exit(void (*handler)())
{
    return fault_due(call::at_exit) ? -1 : real_os::at_exit(handler);
}

void end_process(int status)
{
    real_os::end_process(status);
}

int at_fork_in_child(void (*handler)())
{
    return fault_due(call::at_fork_in_child) ? -1 : real_os::at_fork_in_child(handler);
}

int create_thread(pthread_t& thread, void* (*body)(void*), void* argument)
{
    return fault_due(call::create_thread) ? EAGAIN : real_os::create_thread(thread, body, argument);
}

int join_thread(pthread_t thread)
{
    return real_os::join_thread(thread);
}

int join_thread_within(pthread_t thread, int64_t duration_tv)
{
    return real_os::join_thread_within(thread, duration_tv);
}

bool register_barrier_in_all_threads()
{
    return !fault_due(call::barrier) && real_os::register_barrier_in_all_threads();
}

bool barrier_in_all_threads()
{
    return !fault_due(call::barrier) && real_os::barrier_in_all_threads();
}

int create_thread_key(pthread_key_t& key, void (*destructor)(void*))
{
    return fault_due(call::create_thread_key) ? EAGAIN : real_os::create_thread_key(key, destructor);
}

} // namespace ostrum::os
