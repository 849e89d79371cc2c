#ifndef OSTRUM_BENCH_SCENARIOS_H
#define OSTRUM_BENCH_SCENARIOS_H
// The configurations that are measured, each in processes of its own, since settings are read once per
// process.
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "measurements.h"

namespace ostrum_bench {

// How often a scenario is measured: so many processes, so many repetitions in each. More than are needed:
// those that a neighbour on the processor has disturbed are left out.
struct run_plan {
    int processes;
    int repetitions;
};
inline constexpr run_plan several_processes{3, 9}; // no single process's memory layout decides
inline constexpr run_plan one_process{1, 21};      // what takes long, and memory's layout hardly matters
inline constexpr run_plan new_process_each{21, 1}; // for what a process does once

// What a scenario throws that cannot be measured on this machine, with the reason.
class skipped : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

enum class directory_use { one_each, shared }; // shared: what a process leaves is there for the next one

struct scenario {
    const char* name;
    std::vector<std::pair<const char*, const char*>> environment{};
    void (*register_benchmarks)() = nullptr;       // or null, with
    samples (*measure)(int repetitions) = nullptr; // what measures by hand, the floor in between
    run_plan plan = several_processes;
    directory_use directory = directory_use::one_each;
    const char* repetition_s = "0.02"; // of a registered benchmark, at least
};

std::span<const scenario> scenarios();
const scenario& scenario_named(const std::string& name); // throws for an unknown one

// In the process of that scenario: runs it to the end.
samples run_scenario(const scenario& chosen, int repetitions, bool quick);

// floor_bench.cpp
void register_floor();
double floor_once(); // ns for two clock reads, over a short loop

// hooks_bench.cpp
void register_disabled();
void register_timing_only();
void register_nested();
void register_nested_buckets();
void register_outermost();
void register_keyed_tree();
void register_one_counter();
void register_one_context();
void register_many_contexts();

// paths_bench.cpp
void register_siblings();
samples measure_first_visit_cold(int repetitions);
samples measure_first_visit_after_flush(int repetitions);
samples measure_heap(int repetitions);

// flush_bench.cpp
samples measure_flush(int repetitions);

// handover_bench.cpp
samples measure_handover(int repetitions);
samples measure_latency(int repetitions);

// system_calls_bench.cpp
samples measure_system_calls(int repetitions);

// data_file_bench.cpp
void register_monitored();
samples measure_last_counter(int repetitions);
samples measure_query(int repetitions);

// peers_bench.cpp
void register_event_recorder();
void register_metrics_library();

// init_bench.cpp
samples measure_init_new_file(int repetitions);
samples measure_init_existing_file(int repetitions);

} // namespace ostrum_bench
#endif
