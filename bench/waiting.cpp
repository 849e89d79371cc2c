#include "waiting.h"

#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>

#include "calls.h"

namespace ostrum_bench {

void wait_for_next_second()
{
    constexpr std::chrono::milliseconds into_the_second{5};
    const auto now = std::chrono::system_clock::now();
    std::this_thread::sleep_until(std::chrono::ceil<std::chrono::seconds>(now) + into_the_second);
}

flusher_clock::flusher_clock()
{
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        const pid_t thread = std::stoi(entry.path().filename().string());
        if (thread != gettid()) {
            thread_ = thread;
            return;
        }
    }
    throw std::runtime_error("there is no flusher thread");
}

// A thread's CPU clock is named after the thread; pthread_getcpuclockid would need its pthread_t.
double flusher_clock::ns() const
{
    constexpr uint32_t cpu_time_of_thread = 6;
    return clock_ns(static_cast<clockid_t>(~static_cast<uint32_t>(thread_) << 3U | cpu_time_of_thread));
}

void busy_wait(std::chrono::milliseconds duration)
{
    const auto end = std::chrono::steady_clock::now() + duration;
    while (std::chrono::steady_clock::now() < end) {
    }
}

void flusher_clock::wait_until_asleep() const
{
    for (double used_ns = -1; used_ns != ns();) {
        used_ns = ns();
        busy_wait(asleep_after);
    }
}

} // namespace ostrum_bench
