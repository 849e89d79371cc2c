#include "support/host/call_checks.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <pthread.h>
#include <unistd.h>

#include "robustness/fault_shim.h"

int report_fd = STDOUT_FILENO;
std::atomic<long> issued{0};
std::atomic<long> finished{0};
std::atomic<long> interrupted{0};
std::atomic<int64_t> slowest_tv{0};

namespace {

constexpr int marker = 4242; // an errno that nobody else sets

int64_t set_by_tv()
{
    return shim_clock_set_by != nullptr ? shim_clock_set_by() * 1'000'000'000 : 0;
}

// As if nobody had set the clock.
int64_t clock_tv()
{
    timespec now{};
    int64_t set_by_then_tv = 0;
    do {
        set_by_then_tv = set_by_tv();
        clock_gettime(CLOCK_REALTIME, &now);
    } while (set_by_then_tv != set_by_tv());
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec - set_by_then_tv;
}

void note_slowest(int64_t took_tv)
{
    int64_t known_tv = slowest_tv;
    while (took_tv > known_tv && !slowest_tv.compare_exchange_weak(known_tv, took_tv)) {
    }
}

} // namespace

void report_bad(bool bad, const char* what)
{
    if (bad) {
        dprintf(report_fd, "BAD %s\n", what);
    }
}

watched_call::watched_call() : begun_tv_(clock_tv()), set_by_before_tv_(set_by_tv())
{
    pthread_sigmask(SIG_SETMASK, nullptr, &mask_before_);
    errno = marker;
}

void watched_call::check(int64_t timestamp) const
{
    constexpr int64_t longest_wait_tv = 12'000'000'000;
    const int64_t earliest_tv = begun_tv_ / 1000 * 1000; // without a clock there are microseconds
    const int now_errno = errno;
    const int64_t now_tv = clock_tv();
    const auto in_time = [&](int64_t by_tv) {
        return timestamp - by_tv >= earliest_tv && timestamp - by_tv <= now_tv;
    };
    report_bad(now_errno != marker, "errno");
    report_bad(!in_time(set_by_before_tv_) && !in_time(set_by_tv()), "timestamp");
    report_bad(now_tv - begun_tv_ > longest_wait_tv, "hook that blocks");
    note_slowest(now_tv - begun_tv_);
    sigset_t mask{};
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    report_bad(memcmp(&mask, &mask_before_, sizeof(mask)) != 0, "signal mask");
    int cancellation = -1;
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &cancellation);
    report_bad(cancellation != PTHREAD_CANCEL_ENABLE, "cancellation state");
}
