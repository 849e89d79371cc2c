#ifndef OSTRUM_OS_OS_CALLS_H
#define OSTRUM_OS_OS_CALLS_H
// The one seam to the operating system and to the heap. os_linux.cpp holds the real bodies, most of them a
// line or two; tests link tests/support/fake_os.cpp in its place, which can freeze the clock and make the
// Nth call fail. Results and errno are those of the call that the body makes, where nothing else is said.
// None is a cancellation point but wait_for_descriptors. Any thread.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>

namespace ostrum::os {

// Clocks.
int64_t realtime_ns();                       // CLOCK_REALTIME in nanoseconds; reads nothing else
int64_t monotonic_ns();                      // for waits only, never for a recorded time
bool wall_clock(timeval& now);               // gettimeofday; false when it fails
time_t wall_seconds();                       // of the same clock as realtime_ns
bool local_time(time_t seconds, tm& fields); // localtime_r; false when it fails
void sleep_ns(int64_t duration_tv);

// Heap. Blocks are malloc'ed ones: some are handed to callers that free() them.
void* allocate_zeroed(size_t bytes); // null when memory is short
void* reallocate(void* block, size_t bytes);
char* duplicate(const char* text); // strdup
void release(void* block);         // null allowed

// Files.
int open_file(const char* path, int flags, mode_t mode); // O_CLOEXEC added; never returns 0, 1 or 2
int close_file(int fd);
ssize_t read_file(int fd, void* bytes, size_t count);
ssize_t write_file(int fd, const void* bytes, size_t count);
bool takes_output(int fd,
                  int wait_ms); // false: a write would block; true also for a descriptor with an error
off_t seek_file(int fd, off_t offset, int whence);
int cut_file(int fd, off_t length);                     // ftruncate
int reserve_blocks(int fd, off_t offset, off_t length); // posix_fallocate: an error number, or 0
// fallocate, which never writes over what is there: an error number, or 0
int reserve_blocks_in_use(int fd, off_t offset, off_t length);
int flush_stream(FILE* stream); // fflush: of a stream of the host's
// A record lock, by fcntl; the offset counts from the start of the file.
int lock_range(int fd, int command, short type, off_t offset, off_t length);
int status_of_path(const char* path, struct stat& status);
int status_of_link(const char* path, struct stat& status); // lstat
int status_of_file(int fd, struct stat& status);
int unlink_path(const char* path);
int rename_path(const char* from, const char* to);
void* map_shared(size_t bytes, int fd); // null when the mapping fails, errno set
int unmap(void* address, size_t bytes);

// Process and threads.
int32_t process_id(); // getpid(): a system call, so not for the hooks
const char* environment(const char* name);
int resource_usage(rusage& usage); // of the process
long system_value(int name);       // sysconf
int descriptor_table_size();       // room in the kernel's table of this process; 0 = not known
int install_signal_action(int signal_number, const struct sigaction& action);
int signal_mask(int how, const sigset_t* set, sigset_t* old);
bool signal_pending(int signal_number);
void discard_pending_signal(int signal_number); // takes one pending instance, without waiting
int wait_for_descriptors(int n, fd_set* read_set, fd_set* write_set, fd_set* except_set, timeval* timeout);
void* global_symbol(const char* name); // dlsym over the whole process
int at_exit(void (*handler)());
[[noreturn]] void end_process(int status); // exit()
int at_fork_in_child(void (*handler)());
int create_thread(pthread_t& thread, void* (*body)(void*), void* argument); // joinable; an error number, or 0
int join_thread(pthread_t thread);
int join_thread_within(pthread_t thread, int64_t duration_tv); // an error number, or 0
// A full memory barrier in every running thread of the process, made from outside (membarrier). False where
// the system has none; to be registered first, once a process.
bool register_barrier_in_all_threads();
bool barrier_in_all_threads();
int lock_mutex_within(pthread_mutex_t& mutex, int64_t duration_tv); // an error number, or 0
int create_thread_key(pthread_key_t& key, void (*destructor)(void*));

} // namespace ostrum::os
#endif
