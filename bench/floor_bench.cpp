#include "calls.h"
#include "scenarios.h"

namespace ostrum_bench {
namespace {

void read_clock_twice()
{
    timespec first{};
    timespec second{};
    clock_gettime(CLOCK_REALTIME, &first);
    clock_gettime(CLOCK_REALTIME, &second);
    benchmark::DoNotOptimize(first);
    benchmark::DoNotOptimize(second);
}

} // namespace

void register_floor()
{
    register_timed(floor_name, [](benchmark::State& state) {
        for (auto _ : state) {
            read_clock_twice();
        }
    });
}

double floor_once()
{
    constexpr int rounds = 10'000;
    const double total_ns = elapsed_ns(CLOCK_THREAD_CPUTIME_ID, [] {
        for (int round = 0; round < rounds; ++round) {
            read_clock_twice();
        }
    });
    return total_ns / rounds;
}

} // namespace ostrum_bench
