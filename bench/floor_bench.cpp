#include <chrono>
#include <ctime>

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
    benchmark::RegisterBenchmark(floor_row, [](benchmark::State& state) {
        for (auto _ : state) {
            read_clock_twice();
        }
    });
}

double floor_once()
{
    constexpr int rounds = 10'000;
    const auto start = std::chrono::steady_clock::now();
    for (int round = 0; round < rounds; ++round) {
        read_clock_twice();
    }
    const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
    return elapsed.count() / rounds;
}

} // namespace ostrum_bench
