#ifndef OSTRUM_BENCH_CALLS_H
#define OSTRUM_BENCH_CALLS_H
// The hooks as a host calls them, and the call tree that several benchmarks walk.
#include <algorithm>
#include <cstdint>
#include <ctime>
#include <span>
#include <string>
#include <vector>

#include <unistd.h>

#include <benchmark/benchmark.h>
#include <ostrum.h>
#include <qel_platform.h>

#include "measurements.h"

namespace ostrum_bench {

inline constexpr uint32_t outer_opcode = 1;
inline constexpr uint32_t measured_opcode = 3;
inline constexpr uint32_t first_sibling_opcode = 1000;
inline constexpr const char* host_file = "operations.cpp";
inline constexpr const char* host_program = "bench_host";
inline constexpr const char* object_type = "/part";

inline qel_errbuf_t no_error{};
inline const int32_t own_pid = getpid(); // a system call, so not for the loops

// The platform's strong entry keeps it linked; logging must be on, or something else would be measured.
void start_library();

inline void start_op(uint32_t opcode, const char* name, int32_t line = 10)
{
    benchmark::DoNotOptimize(
        ostrum_log_start_op(opcode, name, 0, nullptr, host_file, line, object_type, 1, 1, &no_error));
}

inline void end_op(uint32_t opcode, const char* name, int32_t line = 10)
{
    benchmark::DoNotOptimize(ostrum_log_end_op(opcode, name, 0, nullptr, nullptr, 0, host_file, line,
                                               object_type, 1, 1, &no_error));
}

inline void start_fn(uint32_t opcode, const char* name)
{
    benchmark::DoNotOptimize(
        ostrum_log_start_fn(opcode, name, 0, host_program, host_file, 10, object_type, 1));
}

inline void end_fn(uint32_t opcode, const char* name)
{
    benchmark::DoNotOptimize(
        ostrum_log_end_fn(opcode, name, 0, 0, host_program, host_file, 10, object_type, 1, 0, 0, 0));
}

inline void start_keyed(int32_t key, uint32_t opcode, const char* name, int32_t line = 10)
{
    benchmark::DoNotOptimize(ostrum_log_start_op_key(own_pid, key, opcode, name, 0, nullptr, host_file, line,
                                                     object_type, 1, 1, &no_error));
}

inline void end_keyed(int32_t key, uint32_t opcode, const char* name, int32_t line = 10)
{
    benchmark::DoNotOptimize(ostrum_log_end_op_key(own_pid, key, opcode, name, 0, nullptr, nullptr, 0,
                                                   host_file, line, object_type, 1, 1, &no_error));
}

// One hook call of a walk through the tree.
struct tree_call {
    bool is_start;
    uint32_t opcode;
    const char* name;
    int32_t line;
};

// A tree of depth 5 with 20 paths: the outermost operation and 19 paths below it, each called once.
inline constexpr int tree_paths = 20;
inline constexpr int nested_paths = tree_paths - 1;
const std::vector<tree_call>& tree_walk(); // the 20 pairs
std::span<const tree_call> nested_walk();  // without the outermost operation
const tree_call& tree_root();

inline void call_tree(std::span<const tree_call> calls)
{
    for (const tree_call& call : calls) {
        if (call.is_start) {
            start_op(call.opcode, call.name, call.line);
        } else {
            end_op(call.opcode, call.name, call.line);
        }
    }
}

inline void call_keyed_tree(int32_t key, std::span<const tree_call> calls)
{
    for (const tree_call& call : calls) {
        if (call.is_start) {
            start_keyed(key, call.opcode, call.name, call.line);
        } else {
            end_keyed(key, call.opcode, call.name, call.line);
        }
    }
}

// A bucket file of four bounds. Calls that do nothing, and what calls them, belong to the middle bucket.
inline constexpr const char* five_buckets = "* 0.000000010 0.000000020 1 10\n";

// Registers a benchmark that also notes how fast the processor was, before or after it.
template <typename Work>
benchmark::internal::Benchmark* register_timed(const std::string& name, Work work)
{
    return benchmark::RegisterBenchmark(name.c_str(), [work](benchmark::State& state) {
        const double before_ns = probe_processor();
        work(state);
        state.counters[processor_counter] = {std::max(before_ns, probe_processor()),
                                             benchmark::Counter::kAvgThreads};
    });
}

// One thread's cost is its CPU time; of several that wait for one another, the time on the wall.
void run_in_threads(benchmark::internal::Benchmark* pair, int threads);

// Operations below one caller.
std::vector<uint32_t> shuffled_opcodes(int count);
std::vector<uint32_t> random_opcodes(int count, size_t draws); // with repetition

inline void call_siblings(std::span<const uint32_t> opcodes)
{
    for (const uint32_t opcode : opcodes) {
        start_op(opcode, "sibling");
        end_op(opcode, "sibling");
    }
}

inline void call_keyed_siblings(int32_t key, std::span<const uint32_t> opcodes)
{
    for (const uint32_t opcode : opcodes) {
        start_keyed(key, opcode, "sibling");
        end_keyed(key, opcode, "sibling");
    }
}

// Nanoseconds: the calling thread's CPU time, for stretches of 50 us and more; and the time on the wall,
// for single calls, and for what waits.
inline double clock_ns(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

template <typename Work>
double elapsed_ns(clockid_t clock, Work work)
{
    const double start_ns = clock_ns(clock);
    work();
    return clock_ns(clock) - start_ns;
}

} // namespace ostrum_bench
#endif
