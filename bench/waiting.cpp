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

void flusher_clock::wait_until_asleep() const
{
    constexpr std::chrono::milliseconds a_while{3};
    for (double before_ns = -1; before_ns != ns();) {
        before_ns = ns();
        std::this_thread::sleep_for(a_while);
    }
}

} // namespace ostrum_bench
