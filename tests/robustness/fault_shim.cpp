// Preloaded into a host (LD_PRELOAD): the Nth call of one kind that the tracing library makes fails, is
// short or comes late. Calls are the library's by their return address; the host's own, the platform's and
// the C library's are let through. Services of the platform fail the same way.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <thread>

#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "data_file/layout.h"
#include "qel_platform.h"
#include "robustness/fault_shim.h"

extern "C" {
void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* block, size_t bytes);
void __libc_free(void* block);
}

namespace {

// One fault is armed at a time.
struct armed_fault {
    char call[64] = "";
    std::atomic<long> nth{0};  // 0: none
    std::atomic<long> made{0}; // calls of that name since it was armed
    std::atomic<long> hits{0};
    int error = 0; // errno, or one of fault_result
    bool from_then_on = false;
};
armed_fault armed;
dl_find_object library{};

bool is_library(const void* caller)
{
    return caller >= library.dlfo_map_start && caller < library.dlfo_map_end;
}

void sleep_late(int result)
{
    const int saved_errno = errno;
    std::this_thread::sleep_for(std::chrono::milliseconds(result == fault_late ? 20 : fault_hold - result));
    errno = saved_errno;
}

int die()
{
    kill(getpid(), SIGKILL);
    pause();
    return 0;
}

// What becomes of this call: 0 it is made as usual, else an errno, which is set, or a fault_result.
int strike(const char* call, const void* caller)
{
    if (armed.nth == 0 || !is_library(caller) || strcmp(call, armed.call) != 0) {
        return 0;
    }
    const long n = ++armed.made;
    if (n < armed.nth || (n > armed.nth && !armed.from_then_on)) {
        return 0;
    }
    ++armed.hits;
    if (armed.error == fault_late || armed.error <= fault_hold) {
        sleep_late(armed.error);
        return 0;
    }
    if (armed.error == fault_kill && strcmp(call, "write") != 0) {
        return die();
    }
    if (armed.error == fault_cancel) {
        pthread_cancel(pthread_self());
        pthread_testcancel();
    }
    if (armed.error > 0) {
        errno = armed.error;
    }
    return armed.error;
}

// ---- The wall clock ----

std::atomic<long> set_by_s{0};
std::atomic<long> readings_left{0}; // until the step; 0: none is to come
std::atomic<long> step_s{0};
std::atomic<long> steps_made{0};

// For one reading. The monotonic clock and the system's own waits go on as they are.
time_t set_by(const void* caller)
{
    if (readings_left > 0 && is_library(caller) && --readings_left == 0) {
        set_by_s += step_s;
        ++steps_made;
    }
    return set_by_s;
}

// ---- The locks in the data file ----

std::atomic<const char*> data_file{nullptr}; // where it is mapped

const char* name_of_lock(size_t at)
{
    using ostrum::data_file_image;
    constexpr const char* header_locks[] = {"trace", "alarm", "tables", "contexts", "metrics"};
    const size_t header_lock = (at - offsetof(data_file_image, locks)) / sizeof(ostrum::lock_slot);
    return header_lock < std::size(header_locks)       ? header_locks[header_lock]
           : at < offsetof(data_file_image, variables) ? "counter"
                                                       : "variable";
}

void strike_lock(const char* event, const pthread_mutex_t* mutex, const void* caller)
{
    const char* const begin = data_file;
    const char* const at = reinterpret_cast<const char*>(mutex);
    if (armed.nth == 0 || begin == nullptr || at < begin || at >= begin + sizeof(ostrum::data_file_image)) {
        return;
    }
    char name[sizeof(armed.call)];
    snprintf(name, sizeof(name), "%s_%s", event, name_of_lock(static_cast<size_t>(at - begin)));
    strike(name, caller);
}

// ---- The heap ----

std::atomic<long> blocks{0};     // that the library has allocated and nobody has released yet
constexpr size_t mark_room = 16; // each has a mark at its end, behind what the library asked for

uintptr_t& mark_of(void* block)
{
    char* const end = static_cast<char*>(block) + malloc_usable_size(block);
    return *reinterpret_cast<uintptr_t*>(end - sizeof(uintptr_t));
}

uintptr_t own_mark(const void* block)
{
    return ~reinterpret_cast<uintptr_t>(block);
}

void* remembered(void* block)
{
    if (block != nullptr) {
        mark_of(block) = own_mark(block);
        ++blocks;
    }
    return block;
}

void forget(void* block)
{
    if (block != nullptr && mark_of(block) == own_mark(block)) {
        mark_of(block) = 0;
        --blocks;
    }
}

__attribute__((constructor)) void find_library()
{
    _dl_find_object(dlsym(RTLD_DEFAULT, "ostrum_init"), &library);
}

// After the library's exit handler, and after those of all others.
__attribute__((destructor)) void report_at_exit()
{
    dprintf(fault_report_fd, "fault_hits=%ld\nclock_steps=%ld\nblocks=%ld\n", armed.hits.load(),
            steps_made.load(), blocks.load());
}

size_t shortened(int result, size_t count)
{
    return result == fault_short ? (count + 1) / 2 : result == fault_nothing ? 0 : count;
}

} // namespace

extern "C" {

#pragma GCC visibility push(default)

void shim_fault(const char* call, long nth, int error, int from_then_on)
{
    armed.nth = 0;
    snprintf(armed.call, sizeof(armed.call), "%s", call);
    armed.error = error;
    armed.from_then_on = from_then_on != 0;
    armed.made = 0;
    armed.nth = nth;
}

long shim_faults_hit()
{
    return armed.hits;
}

void shim_step_clock(long nth, long by_s)
{
    step_s = by_s;
    readings_left = nth;
    if (nth == 0) {
        set_by_s += by_s;
    }
}

long shim_clock_set_by()
{
    return set_by_s;
}

// A call that fails with errno set and `failure`; CALLER is where it returns to.
#define CALLER __builtin_return_address(0)
#define NEXT(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))
#define FAILING_CALL(result, name, failure, parameters, arguments)                                           \
    result name parameters                                                                                   \
    {                                                                                                        \
        static const auto next = NEXT(name);                                                                 \
        return strike(#name, CALLER) != 0 ? (failure) : next arguments;                                      \
    }

FAILING_CALL(int, stat, -1, (const char* path, struct stat* status), (path, status))
FAILING_CALL(int, lstat, -1, (const char* path, struct stat* status), (path, status))
FAILING_CALL(int, fstat, -1, (int fd, struct stat* status), (fd, status))
FAILING_CALL(int, rename, -1, (const char* from, const char* to), (from, to))
FAILING_CALL(int, unlink, -1, (const char* path), (path))
FAILING_CALL(int, ftruncate, -1, (int fd, off_t length), (fd, length))
FAILING_CALL(int, fallocate, -1, (int fd, int mode, off_t at, off_t length), (fd, mode, at, length))
FAILING_CALL(int, posix_fallocate, errno, (int fd, off_t at, off_t length), (fd, at, length))
FAILING_CALL(off_t, lseek, -1, (int fd, off_t offset, int whence), (fd, offset, whence))
FAILING_CALL(int, getrusage, -1, (__rusage_who_t who, rusage* usage), (who, usage))
FAILING_CALL(int, select, -1, (int n, fd_set* in, fd_set* out, fd_set* other, timeval* timeout),
             (n, in, out, other, timeout))
FAILING_CALL(int, sigaction, -1, (int number, const struct sigaction* action, struct sigaction* old),
             (number, action, old))
FAILING_CALL(int, pthread_create, errno,
             (pthread_t * thread, const pthread_attr_t* kind, void* (*body)(void*), void* argument),
             (thread, kind, body, argument))
FAILING_CALL(int, pthread_key_create, errno, (pthread_key_t * key, void (*end)(void*)), (key, end))

extern int __cxa_atexit(void (*handler)(void*), void* argument, void* object);
extern int __register_atfork(void (*before)(), void (*parent)(), void (*child)(), void* object);
FAILING_CALL(int, __cxa_atexit, -1, (void (*handler)(void*), void* argument, void* object),
             (handler, argument, object))
FAILING_CALL(int, __register_atfork, errno,
             (void (*before)(), void (*parent)(), void (*child)(), void* object),
             (before, parent, child, object))

int clock_gettime(clockid_t clock, timespec* now)
{
    static const auto next = NEXT(clock_gettime);
    const int result = strike("clock_gettime", CALLER) != 0 ? -1 : next(clock, now);
    now->tv_sec += result == 0 && clock == CLOCK_REALTIME ? set_by(CALLER) : 0;
    return result;
}

int gettimeofday(timeval* now, void* zone)
{
    static const auto next = NEXT(gettimeofday);
    const int result = strike("gettimeofday", CALLER) != 0 ? -1 : next(now, zone);
    now->tv_sec += result == 0 ? set_by(CALLER) : 0;
    return result;
}

void* mmap(void* at, size_t bytes, int access, int flags, int fd, off_t offset)
{
    static const auto next = NEXT(mmap);
    if (strike("mmap", CALLER) != 0) {
        return MAP_FAILED;
    }
    void* const mapping = next(at, bytes, access, flags, fd, offset);
    if (is_library(CALLER) && bytes == sizeof(ostrum::data_file_image) && mapping != MAP_FAILED) {
        data_file = static_cast<const char*>(mapping);
    }
    return mapping;
}

#define LOCKING_CALL(name, parameters, arguments)                                                            \
    int name parameters                                                                                      \
    {                                                                                                        \
        static const auto next = NEXT(name);                                                                 \
        const int result = next arguments;                                                                   \
        if (result == 0) {                                                                                   \
            strike_lock("locked", mutex, CALLER);                                                            \
        }                                                                                                    \
        return result;                                                                                       \
    }
LOCKING_CALL(pthread_mutex_trylock, (pthread_mutex_t * mutex), (mutex))
LOCKING_CALL(pthread_mutex_clocklock, (pthread_mutex_t * mutex, clockid_t clock, const timespec* until),
             (mutex, clock, until))

int pthread_mutex_unlock(pthread_mutex_t* mutex)
{
    static const auto next = NEXT(pthread_mutex_unlock);
    strike_lock("unlocking", mutex, CALLER);
    return next(mutex);
}

// The descriptor is gone even where close fails.
int close(int fd)
{
    static const auto next = NEXT(close);
    const int result = next(fd);
    return strike("close", CALLER) != 0 ? -1 : result;
}

int open(const char* path, int flags, ...)
{
    static const auto next = NEXT(open);
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return strike("open", CALLER) != 0 ? -1 : next(path, flags, mode);
}

int fcntl(int fd, int command, ...)
{
    static const auto next = NEXT(fcntl);
    va_list rest;
    va_start(rest, command);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    return strike("fcntl", CALLER) != 0 ? -1 : next(fd, command, argument);
}

ssize_t read(int fd, void* bytes, size_t count)
{
    static const auto next = NEXT(read);
    const int result = strike("read", CALLER);
    return result > 0 ? -1 : next(fd, bytes, shortened(result, count));
}

// Diagnostics have a name of their own: most tests read them.
ssize_t write(int fd, const void* bytes, size_t count)
{
    static const auto next = NEXT(write);
    const int result = strike(fd == STDERR_FILENO ? "write_diagnostics" : "write", CALLER);
    if (result == fault_kill) {
        (void)!next(fd, bytes, count / 2);
        return die();
    }
    return result > 0 ? -1 : result == fault_nothing ? 0 : next(fd, bytes, shortened(result, count));
}

// ---- The heap: one name for all, "heap" ----

void* calloc(size_t count, size_t bytes)
{
    return !is_library(CALLER)           ? __libc_calloc(count, bytes)
           : strike("heap", CALLER) != 0 ? nullptr
                                         : remembered(__libc_calloc(1, count * bytes + mark_room));
}

void* realloc(void* block, size_t bytes)
{
    if (strike("heap", CALLER) != 0) {
        return nullptr;
    }
    forget(block);
    return is_library(CALLER) ? remembered(__libc_realloc(block, bytes + mark_room))
                              : __libc_realloc(block, bytes);
}

char* strdup(const char* text)
{
    const size_t bytes = strlen(text) + 1;
    void* const copy = strike("heap", CALLER) != 0 ? nullptr : __libc_malloc(bytes + mark_room);
    if (is_library(CALLER)) {
        remembered(copy);
    }
    return static_cast<char*>(copy != nullptr ? memcpy(copy, text, bytes) : nullptr);
}

void free(void* block)
{
    forget(block);
    __libc_free(block);
}

// ---- The platform: a refused service answers as one that has failed ----

static void set_failure(qel_errbuf_t* eb)
{
    if (eb != nullptr) {
        *eb = {QEL_LOC_FLIST, QEL_CLASS_SYSTEM, QEL_ERR_NO_MEM, 0, 0, {}};
    }
}

static void refuse_setting(void** value, int32_t* err)
{
    *value = nullptr;
    *err = QEL_ERR_NO_MEM;
}

FAILING_CALL(void, qel_conf, refuse_setting(value, err),
             (const char* program, const char* key, int32_t type, void** value, int32_t* err),
             (program, key, type, value, err))
FAILING_CALL(void, qel_flist_to_str_masked, set_failure(eb),
             (qel_flist_t * fl, char** text, int32_t* length, qel_errbuf_t* eb), (fl, text, length, eb))
FAILING_CALL(int32_t, qel_flist_elem_count, (set_failure(eb), 0),
             (qel_flist_t * fl, uint32_t fld, qel_errbuf_t* eb), (fl, fld, eb))
FAILING_CALL(const char*, qellog_get_correlation, nullptr, (), ())
FAILING_CALL(const char*, tbx_opcode_to_opname, "unknown", (int32_t opcode), (opcode))
FAILING_CALL(int32_t, tbx_opname_to_opcode, 0, (const char* name), (name))

#pragma GCC visibility pop
}
