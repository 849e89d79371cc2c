#include "scenarios.h"

#include <algorithm>
#include <stdexcept>

namespace ostrum_bench {

// time_on: bit 0x1 keeps live counters of outermost operations, bit 0x2 aggregates nested ones and keeps
// the trace file open, bits 0x4 and 0x8 make line and flags part of a counter's key.
std::span<const scenario> scenarios()
{
    static const std::vector<scenario> all{
        {.name = "disabled",
         .environment = {{"OSTRUM_LOGDIR", "/nonexistent"}},
         .register_benchmarks = register_disabled},
        {.name = "timing_only",
         .environment = {{"OSTRUM_VAR_TIME", "1"}},
         .register_benchmarks = register_timing_only},
        {.name = "nested", .environment = {{"OSTRUM_VAR_TIME", "2"}}, .register_benchmarks = register_nested},
        {.name = "nested_buckets",
         .environment = {{"OSTRUM_VAR_TIME", "2"}, {"OSTRUM_OPCODE_BUCKET_FILE", "buckets.txt"}},
         .register_benchmarks = register_nested_buckets},
        {.name = "outermost",
         .environment = {{"OSTRUM_VAR_TIME", "2"}},
         .register_benchmarks = register_outermost},
        {.name = "outermost_live",
         .environment = {{"OSTRUM_VAR_TIME", "3"}},
         .register_benchmarks = register_outermost},
        {.name = "keyed_tree",
         .environment = {{"OSTRUM_VAR_TIME", "2"}},
         .register_benchmarks = register_keyed_tree},
        {.name = "keyed_tree_live",
         .environment = {{"OSTRUM_VAR_TIME", "3"}},
         .register_benchmarks = register_keyed_tree},
        {.name = "one_counter",
         .environment = {{"OSTRUM_VAR_TIME", "3"}},
         .register_benchmarks = register_one_counter},
        {.name = "siblings",
         .environment = {{"OSTRUM_VAR_TIME", "2"}},
         .register_benchmarks = register_siblings},
        {.name = "first_visit",
         .environment = {{"OSTRUM_VAR_TIME", "2"}},
         .measure = measure_first_visit_cold,
         .plan = new_process_each},
        {.name = "first_visit_again",
         .environment = {{"OSTRUM_VAR_TIME", "2"}, {"OSTRUM_MAX_LOG_SIZE", "1"}},
         .measure = measure_first_visit_after_flush},
        {.name = "heap", .environment = {{"OSTRUM_VAR_TIME", "2"}}, .measure = measure_heap, .plan = {3, 1}},
        {.name = "flush",
         .environment = {{"OSTRUM_VAR_TIME", "2"}, {"OSTRUM_FLUSH_FREQUENCY", "1"}},
         .measure = measure_flush,
         .plan = one_process},
        {.name = "handover",
         .environment = {{"OSTRUM_VAR_TIME", "2"},
                         {"OSTRUM_FLUSH_FREQUENCY", "1"},
                         {"OSTRUM_ASYNC_FLUSHING", "1"}},
         .measure = measure_handover,
         .plan = {1, 63}},
        {.name = "latency",
         .environment = {{"OSTRUM_VAR_TIME", "2"},
                         {"OSTRUM_MAX_LOG_SIZE", "1"},
                         {"OSTRUM_ASYNC_FLUSHING", "1"}},
         .measure = measure_latency,
         .plan = one_process},
        {.name = "system_calls",
         .environment = {{"OSTRUM_VAR_TIME", "3"}},
         .measure = measure_system_calls,
         .plan = {1, 3}},
        {.name = "monitored",
         .environment = {{"OSTRUM_VAR_TIME", "3"}},
         .register_benchmarks = register_monitored,
         .plan = one_process,
         .repetition_s = "0.3"}, // several polls
        {.name = "one_context",
         .environment = {{"OSTRUM_VAR_TIME", "2"}},
         .register_benchmarks = register_one_context},
        {.name = "many_contexts",
         .environment = {{"OSTRUM_VAR_TIME", "2"}},
         .register_benchmarks = register_many_contexts},
        {.name = "last_counter",
         .environment = {{"OSTRUM_VAR_TIME", "1"}},
         .measure = measure_last_counter,
         .plan = new_process_each},
        {.name = "query",
         .environment = {{"OSTRUM_VAR_TIME", "13"}},
         .measure = measure_query,
         .plan = one_process},
        {.name = "event_recorder", .register_benchmarks = register_event_recorder, .plan = one_process},
        {.name = "metrics_library", .register_benchmarks = register_metrics_library},
        {.name = "init_new",
         .environment = {{"OSTRUM_VAR_TIME", "3"}},
         .measure = measure_init_new_file,
         .plan = new_process_each},
        {.name = "init_existing",
         .environment = {{"OSTRUM_VAR_TIME", "3"}},
         .measure = measure_init_existing_file,
         .plan = new_process_each,
         .directory = directory_use::shared},
    };
    return all;
}

const scenario& scenario_named(const std::string& name)
{
    const auto all = scenarios();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const scenario& each) { return name == each.name; });
    if (found == all.end()) {
        throw std::runtime_error("unknown scenario " + name);
    }
    return *found;
}

samples run_scenario(const scenario& chosen, int repetitions, bool quick)
{
    if (chosen.register_benchmarks == nullptr) {
        return chosen.measure(repetitions);
    }
    // Interleaved: the floor is read between the repetitions of what is compared with it.
    std::vector<std::string> words{"ostrum_bench", "--benchmark_repetitions=" + std::to_string(repetitions),
                                   std::string("--benchmark_min_time=") +
                                       (quick ? "0.002" : chosen.repetition_s),
                                   "--benchmark_enable_random_interleaving=true"};
    std::vector<char*> arguments;
    arguments.reserve(words.size());
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    register_floor();
    chosen.register_benchmarks();
    sample_collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    return collector.collected();
}

} // namespace ostrum_bench
