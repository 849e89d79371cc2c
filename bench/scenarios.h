#ifndef OSTRUM_BENCH_SCENARIOS_H
#define OSTRUM_BENCH_SCENARIOS_H
// The configurations that are measured, each in a process (or several) of its own.
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "measurements.h"

namespace ostrum_bench {

struct run_length {
    int repetitions;        // of each benchmark, and processes where a scenario needs several
    const char* min_time_s; // of one repetition
};

struct scenario {
    const char* name;
    std::vector<std::pair<const char*, const char*>> environment;
    void (*register_benchmarks)(); // or null, with
    samples (*measure)();          // one sample a process: what happens once per process
    bool new_directory;            // for each process of it
};

std::span<const scenario> scenarios();

// In the process of that scenario: runs it to the end.
samples run_scenario(const scenario& chosen, const run_length& length);

// floor_bench.cpp
void register_floor();
double floor_once(); // ns for two clock reads, over a short loop

// hooks_bench.cpp
void register_disabled();
void register_timing_off();
void register_nested();
void register_outermost();
void register_outermost_live();
void register_keyed();
void register_keyed_live();
void register_siblings();
void register_flush();

// init_bench.cpp
samples measure_init_new_file();
samples measure_init_existing_file();

} // namespace ostrum_bench
#endif
