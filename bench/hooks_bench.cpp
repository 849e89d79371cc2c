// Start/end pairs through the exported hooks, as a host calls them.
#include <algorithm>
#include <chrono>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

#include <ostrum.h>
#include <qel_platform.h>

#include "scenarios.h"

namespace ostrum_bench {
namespace {

constexpr uint32_t outer_opcode = 1;
constexpr uint32_t measured_opcode = 3;
constexpr uint32_t first_sibling_opcode = 1000;
constexpr int flushed_records = 1000;
constexpr int flushes_a_repetition = 4; // few: each writes some 200 kB

qel_errbuf_t no_error{};
const int32_t own_pid = getpid(); // a system call, so not for the loops

void start_op(uint32_t opcode, const char* name)
{
    benchmark::DoNotOptimize(
        ostrum_log_start_op(opcode, name, 0, nullptr, "hooks_bench.cpp", 10, "/part", 1, 1, &no_error));
}

void end_op(uint32_t opcode, const char* name)
{
    benchmark::DoNotOptimize(ostrum_log_end_op(opcode, name, 0, nullptr, nullptr, 0, "hooks_bench.cpp", 10,
                                               "/part", 1, 1, &no_error));
}

void start_keyed(int32_t key)
{
    benchmark::DoNotOptimize(ostrum_log_start_op_key(own_pid, key, measured_opcode, "measured", 0, nullptr,
                                                     "hooks_bench.cpp", 20, "/part", 1, 1, &no_error));
}

void end_keyed(int32_t key)
{
    benchmark::DoNotOptimize(ostrum_log_end_op_key(own_pid, key, measured_opcode, "measured", 0, nullptr,
                                                   nullptr, 0, "hooks_bench.cpp", 20, "/part", 1, 1,
                                                   &no_error));
}

// The platform's strong entry keeps it linked; logging must be on, or something else would be measured.
void start_library()
{
    qel_platform_init();
    if (ostrum_init() != 0) {
        throw std::runtime_error("ostrum_init failed");
    }
}

void register_pair(const char* row)
{
    benchmark::RegisterBenchmark(row, [](benchmark::State& state) {
        for (auto _ : state) {
            start_op(measured_opcode, "measured");
            end_op(measured_opcode, "measured");
        }
    });
}

void register_keyed_pairs(const std::string& what)
{
    start_library();
    for (const int threads : {1, 2, 4}) {
        const std::string row = what + std::to_string(threads) + (threads == 1 ? " thread" : " threads");
        benchmark::RegisterBenchmark(row.c_str(), [](benchmark::State& state) {
            const int32_t key = state.thread_index();
            for (auto _ : state) {
                start_keyed(key);
                end_keyed(key);
            }
        })->Threads(threads);
    }
}

// Every sibling path once, in an order that a tree gains nothing from.
std::vector<uint32_t> shuffled_opcodes(int count)
{
    std::vector<uint32_t> opcodes(static_cast<size_t>(count));
    std::iota(opcodes.begin(), opcodes.end(), first_sibling_opcode);
    std::shuffle(opcodes.begin(), opcodes.end(), std::mt19937(1)); // NOLINT(cert-msc32-c,cert-msc51-cpp)
    return opcodes;
}

void call_siblings(const std::vector<uint32_t>& opcodes)
{
    for (const uint32_t opcode : opcodes) {
        start_op(opcode, "sibling");
        end_op(opcode, "sibling");
    }
}

} // namespace

void register_disabled()
{
    qel_platform_init();
    if (ostrum_init() == 0) {
        throw std::runtime_error("ostrum_init should have failed");
    }
    register_pair("pair, library disabled");
}

void register_timing_off()
{
    start_library();
    register_pair("pair, timing off");
}

void register_nested()
{
    start_library();
    start_op(outer_opcode, "outer"); // stays open: every measured pair is nested in it
    register_pair("nested pair");
}

void register_outermost()
{
    start_library();
    register_pair("outermost pair, no live counter");
}

void register_outermost_live()
{
    start_library();
    register_pair("outermost pair, live counter");
}

void register_keyed()
{
    register_keyed_pairs("keyed outermost pair, ");
}

void register_keyed_live()
{
    register_keyed_pairs("keyed outermost pair, one live counter, ");
}

void register_siblings()
{
    start_library();
    for (const int count : {10, 100, 1'000, 10'000}) {
        const std::string row = "nested pair among " + std::to_string(count) + " sibling paths";
        benchmark::RegisterBenchmark(row.c_str(), [count](benchmark::State& state) {
            const std::vector<uint32_t> opcodes = shuffled_opcodes(count);
            const std::string parent = "parent of " + std::to_string(count);
            start_op(0, parent.c_str());
            call_siblings(opcodes); // the nodes are made before the measurement
            size_t next = 0;
            for (auto _ : state) {
                start_op(opcodes[next], "sibling");
                end_op(opcodes[next], "sibling");
                next = next + 1 < opcodes.size() ? next + 1 : 0;
            }
            end_op(0, parent.c_str());
        });
    }
}

// With a maximum of one operation between flushes, each outermost start writes what the last one left.
void register_flush()
{
    start_library();
    benchmark::RegisterBenchmark("one record flushed",
                                 [](benchmark::State& state) {
                                     const std::vector<uint32_t> opcodes =
                                         shuffled_opcodes(flushed_records - 1);
                                     const auto leave_records = [&opcodes] {
                                         call_siblings(opcodes);
                                         end_op(outer_opcode, "outer");
                                     };
                                     start_op(outer_opcode, "outer");
                                     leave_records();
                                     for (auto _ : state) {
                                         const auto start = std::chrono::steady_clock::now();
                                         start_op(outer_opcode, "outer");
                                         const std::chrono::duration<double> elapsed =
                                             std::chrono::steady_clock::now() - start;
                                         state.SetIterationTime(elapsed.count());
                                         leave_records();
                                     }
                                     state.counters[units_counter] = flushed_records;
                                 })
        ->UseManualTime()
        ->Iterations(flushes_a_repetition);
}

} // namespace ostrum_bench
