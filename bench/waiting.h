#ifndef OSTRUM_BENCH_WAITING_H
#define OSTRUM_BENCH_WAITING_H
// Waiting for the moments at which flushes happen.
#include <chrono>

#include <sys/types.h>

namespace ostrum_bench {

// Flushes of a frequency of one second come due with each new second of the wall clock.
void wait_for_next_second();

// Waits at work, as a thread that hands something over has just been.
void busy_wait(std::chrono::milliseconds duration);
inline constexpr std::chrono::milliseconds asleep_after{2}; // a thread that has not run for so long

// The flusher thread's CPU time tells whether it works.
class flusher_clock {
public:
    flusher_clock(); // throws when the process has no second thread
    [[nodiscard]] double ns() const;
    void wait_until_asleep() const;

private:
    pid_t thread_ = 0;
};

} // namespace ostrum_bench
#endif
