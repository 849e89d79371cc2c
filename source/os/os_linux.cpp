#include "os/os_calls.h"

#include "os/no_cancellation.h"
#include "os/signal_set.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <linux/membarrier.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ostrum::os {

namespace {

constexpr int64_t ns_per_s = 1'000'000'000;

// A sandbox may refuse the call: time must go on even so, if in coarser steps.
int64_t read_other_clock()
{
    constexpr int64_t ns_per_us = 1'000;
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<int64_t>(now.tv_sec) * ns_per_s + now.tv_usec * ns_per_us;
}

int64_t read_clock(clockid_t clock)
{
    timespec now{};
    return clock_gettime(clock, &now) == 0 ? static_cast<int64_t>(now.tv_sec) * ns_per_s + now.tv_nsec
                                           : read_other_clock();
}

timespec as_timespec(int64_t duration_tv)
{
    return {static_cast<time_t>(duration_tv / ns_per_s), static_cast<long>(duration_tv % ns_per_s)};
}

// On the clock that nobody sets, where the build allows it: ThreadSanitizer knows only the older of the calls
// that wait until then.
timespec deadline_after(int64_t duration_tv)
{
#ifdef __SANITIZE_THREAD__
    return as_timespec(realtime_ns() + duration_tv);
#else
    return as_timespec(monotonic_ns() + duration_tv);
#endif
}

// A host that closed its standard descriptors must not find our files under their numbers.
int moved_above_standard(int fd)
{
    if (fd < 0 || fd > STDERR_FILENO) {
        return fd;
    }
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    close(fd);
    errno = error;
    return moved;
}

} // namespace

int64_t realtime_ns()
{
    return read_clock(CLOCK_REALTIME);
}

int64_t monotonic_ns()
{
    return read_clock(CLOCK_MONOTONIC);
}

bool wall_clock(timeval& now)
{
    return gettimeofday(&now, nullptr) == 0;
}

time_t wall_seconds()
{
    return static_cast<time_t>(realtime_ns() / ns_per_s); // time() lags behind by a tick
}

bool local_time(time_t seconds, tm& fields)
{
    return localtime_r(&seconds, &fields) != nullptr;
}

void sleep_ns(int64_t duration_tv)
{
    const no_cancellation guard;
    const timespec duration = as_timespec(duration_tv);
    nanosleep(&duration, nullptr);
}

void* allocate_zeroed(size_t bytes)
{
    return calloc(1, bytes);
}

void* reallocate(void* block, size_t bytes)
{
    return realloc(block, bytes);
}

char* duplicate(const char* text)
{
    return strdup(text);
}

void release(void* block)
{
    free(block);
}

int open_file(const char* path, int flags, mode_t mode)
{
    const no_cancellation guard;
    return moved_above_standard(open(path, flags | O_CLOEXEC, mode));
}

int close_file(int fd)
{
    const no_cancellation guard;
    return close(fd);
}

ssize_t read_file(int fd, void* bytes, size_t count)
{
    const no_cancellation guard;
    return read(fd, bytes, count);
}

ssize_t write_file(int fd, const void* bytes, size_t count)
{
    const no_cancellation guard;
    return write(fd, bytes, count);
}

bool takes_output(int fd, int wait_ms)
{
    const no_cancellation guard;
    pollfd output{fd, POLLOUT, 0};
    int ready = poll(&output, 1, wait_ms);
    while (ready < 0 && errno == EINTR) {
        ready = poll(&output, 1, 0); // signals must not make the wait longer
    }
    return ready != 0;
}

off_t seek_file(int fd, off_t offset, int whence)
{
    return lseek(fd, offset, whence);
}

int cut_file(int fd, off_t length)
{
    return ftruncate(fd, length);
}

int reserve_blocks(int fd, off_t offset, off_t length)
{
    const no_cancellation guard;
    return posix_fallocate(fd, offset, length);
}

int reserve_blocks_in_use(int fd, off_t offset, off_t length)
{
    const no_cancellation guard;
    return fallocate(fd, 0, offset, length) == 0 ? 0 : errno;
}

int flush_stream(FILE* stream)
{
    const no_cancellation guard;
    return fflush(stream);
}

int lock_range(int fd, int command, short type, off_t offset, off_t length)
{
    const no_cancellation guard;
    struct flock range {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = offset;
    range.l_len = length;
    return fcntl(fd, command, &range);
}

int status_of_path(const char* path, struct stat& status)
{
    return stat(path, &status);
}

int status_of_link(const char* path, struct stat& status)
{
    return lstat(path, &status);
}

int status_of_file(int fd, struct stat& status)
{
    return fstat(fd, &status);
}

int unlink_path(const char* path)
{
    return unlink(path);
}

int rename_path(const char* from, const char* to)
{
    return rename(from, to);
}

void* map_shared(size_t bytes, int fd)
{
    void* address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return address == MAP_FAILED ? nullptr : address;
}

int unmap(void* address, size_t bytes)
{
    return munmap(address, bytes);
}

int32_t process_id()
{
    return getpid();
}

const char* environment(const char* name)
{
    return getenv(name);
}

int resource_usage(rusage& usage)
{
    return getrusage(RUSAGE_SELF, &usage);
}

int descriptor_table_size()
{
    constexpr char key[] = "FDSize:";
    char text[4096] = "";
    const int fd = open_file("/proc/self/status", O_RDONLY, 0);
    if (fd >= 0) {
        const ssize_t length = read_file(fd, text, sizeof(text) - 1);
        text[length > 0 ? length : 0] = '\0';
        close_file(fd);
    }
    const char* line = strstr(text, key);
    return line != nullptr ? static_cast<int>(strtol(line + sizeof(key) - 1, nullptr, 10)) : 0;
}

long system_value(int name)
{
    return sysconf(name);
}

int install_signal_action(int signal_number, const struct sigaction& action)
{
    return sigaction(signal_number, &action, nullptr);
}

int signal_mask(int how, const sigset_t* set, sigset_t* old)
{
    return pthread_sigmask(how, set, old);
}

bool signal_pending(int signal_number)
{
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, signal_number) == 1;
}

void discard_pending_signal(int signal_number)
{
    const no_cancellation guard;
    const sigset_t set = signal_set({signal_number});
    const timespec at_once{};
    sigtimedwait(&set, nullptr, &at_once);
}

int wait_for_descriptors(int n, fd_set* read_set, fd_set* write_set, fd_set* except_set, timeval* timeout)
{
    return select(n, read_set, write_set, except_set, timeout);
}

void* global_symbol(const char* name)
{
    return dlsym(RTLD_DEFAULT, name);
}

int at_exit(void (*handler)())
{
    return atexit(handler);
}

void end_process(int status)
{
    exit(status);
}

int at_fork_in_child(void (*handler)())
{
    return pthread_atfork(nullptr, nullptr, handler);
}

int create_thread(pthread_t& thread, void* (*body)(void*), void* argument)
{
    return pthread_create(&thread, nullptr, body, argument);
}

int join_thread(pthread_t thread)
{
    const no_cancellation guard;
    return pthread_join(thread, nullptr);
}

int join_thread_within(pthread_t thread, int64_t duration_tv)
{
    const no_cancellation guard;
    const timespec until = deadline_after(duration_tv);
#ifdef __SANITIZE_THREAD__
    return pthread_timedjoin_np(thread, nullptr, &until);
#else
    return pthread_clockjoin_np(thread, nullptr, CLOCK_MONOTONIC, &until);
#endif
}

int lock_mutex_within(pthread_mutex_t& mutex, int64_t duration_tv)
{
    const timespec until = deadline_after(duration_tv);
#ifdef __SANITIZE_THREAD__
    return pthread_mutex_timedlock(&mutex, &until);
#else
    return pthread_mutex_clocklock(&mutex, CLOCK_MONOTONIC, &until);
#endif
}

bool register_barrier_in_all_threads()
{
    return syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
}

bool barrier_in_all_threads()
{
    return syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0;
}

int create_thread_key(pthread_key_t& key, void (*destructor)(void*))
{
    return pthread_key_create(&key, destructor);
}

} // namespace ostrum::os
