#ifndef OSTRUM_PROCESS_STATE_PROCESS_STATE_H
#define OSTRUM_PROCESS_STATE_PROCESS_STATE_H
// What the library knows of its process as a whole: whether it came up, who the main thread is, and
// whether this thread is inside a hook. Reads are single loads, made by every hook.
#include <atomic>
#include <csignal>
#include <cstdint>

#include <pthread.h>

namespace ostrum {

// closed: the process exits, or a fatal signal came; nothing is traced any more.
enum class start_mode : int32_t { undecided = 0, full = 1, quiet = 2, closed = 3 };

// Owned by process_state.cpp, written through the functions below only. Here so that a hook's reads cost
// no call.
struct process_record {
    std::atomic<int32_t> initialised;
    std::atomic<start_mode> mode;
    std::atomic<int32_t> process_id;    // 0 = not remembered yet
    std::atomic<uintptr_t> main_thread; // its mark; 0 = not remembered yet
    uint32_t timeout_nesting;           // the main thread's; see timeout_nesting.h
};
extern process_record this_process;

// Changed by the thread itself and read by signal handlers that interrupt it. In the static TLS block:
// an access costs no call and allocates nothing.
extern constinit thread_local volatile sig_atomic_t thread_is_inside [[gnu::tls_model("initial-exec")]];

// 0 = not yet; the process id of the initialising process after success; -1 = failed. Set once. Whoever
// reads another value than 0 sees all that start-up wrote before.
inline int32_t initialised_state()
{
    return this_process.initialised.load(std::memory_order_acquire);
}
void set_initialised_state(int32_t state);

// The first caller's mode sticks.
void decide_start_mode(start_mode wanted);
inline start_mode decided_start_mode()
{
    return this_process.mode.load(std::memory_order_relaxed);
}
// In a child that was forked while its parent ended.
inline void resume_tracing_after_fork()
{
    start_mode closed = start_mode::closed;
    this_process.mode.compare_exchange_strong(closed, start_mode::full);
}
// From here on hooks return their timestamp only, and no timed flush begins. Also from a signal handler.
inline void end_tracing()
{
    this_process.mode.store(start_mode::closed, std::memory_order_relaxed);
}

int32_t ask_process_id(); // a system call
// No system call once start-up has run; renewed in a forked child.
inline int32_t process_id()
{
    const int32_t remembered = this_process.process_id.load(std::memory_order_acquire);
    return remembered != 0 ? remembered : ask_process_id();
}
uint64_t thread_id(); // pthread_self() as 64 bits

// Tells this thread from all others that live; cheaper than its id. Never 0.
inline uintptr_t thread_mark()
{
    return reinterpret_cast<uintptr_t>(&thread_is_inside);
}

void remember_main_thread(); // the calling thread and its process, if none is remembered yet
inline bool is_main_thread()
{
    return this_process.main_thread.load(std::memory_order_relaxed) == thread_mark();
}
void renew_identity_after_fork(); // child: process id, and the calling thread as main thread

// True from the first instruction of a hook, or of start-up, to its last on this thread. A hook that
// finds it set (a host service or a signal handler that calls a hook) only returns its timestamp.
inline bool inside_library()
{
    return thread_is_inside != 0;
}

class library_scope {
public:
    library_scope() : entered_(thread_is_inside == 0)
    {
        if (entered_) {
            thread_is_inside = 1;
        }
    }
    ~library_scope()
    {
        if (entered_) {
            thread_is_inside = 0;
        }
    }
    library_scope(const library_scope&) = delete;
    library_scope& operator=(const library_scope&) = delete;
    [[nodiscard]] bool entered() const { return entered_; } // false: the thread was inside already

private:
    bool entered_;
};
void leave_library_after_fork(); // child: the flag of an interrupted hook means nothing any more

} // namespace ostrum
#endif
