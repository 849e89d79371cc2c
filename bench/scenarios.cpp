#include "scenarios.h"

#include <algorithm>
#include <stdexcept>

namespace ostrum_bench {

// time_on: bit 0x1 keeps live counters of outermost operations, bit 0x2 aggregates nested ones and keeps
// the trace file open, bits 0x4 and 0x8 make line and flags part of a counter's key.
std::span<const scenario> scenarios()
{
    static const std::vector<scenario> all{
        {"disabled", {{"OSTRUM_LOGDIR", "/nonexistent"}}, register_disabled, nullptr},
        {"timing_only", {{"OSTRUM_VAR_TIME", "1"}}, register_timing_only, nullptr},
        {"nested", {{"OSTRUM_VAR_TIME", "2"}}, register_nested, nullptr},
        {"nested_buckets",
         {{"OSTRUM_VAR_TIME", "2"}, {"OSTRUM_OPCODE_BUCKET_FILE", "buckets.txt"}},
         register_nested_buckets,
         nullptr},
        {"outermost", {{"OSTRUM_VAR_TIME", "2"}}, register_outermost, nullptr},
        {"outermost_live", {{"OSTRUM_VAR_TIME", "3"}}, register_outermost, nullptr},
        {"keyed_tree", {{"OSTRUM_VAR_TIME", "2"}}, register_keyed_tree, nullptr},
        {"keyed_tree_live", {{"OSTRUM_VAR_TIME", "3"}}, register_keyed_tree, nullptr},
        {"one_counter", {{"OSTRUM_VAR_TIME", "3"}}, register_one_counter, nullptr},
        {"siblings", {{"OSTRUM_VAR_TIME", "2"}}, register_siblings, nullptr},
        {"first_visit", {{"OSTRUM_VAR_TIME", "2"}}, nullptr, measure_first_visit_cold, new_process_each},
        {"first_visit_again",
         {{"OSTRUM_VAR_TIME", "2"}, {"OSTRUM_MAX_LOG_SIZE", "1"}},
         nullptr,
         measure_first_visit_after_flush},
        {"heap", {{"OSTRUM_VAR_TIME", "2"}}, nullptr, measure_heap, {3, 1}},
        {"flush",
         {{"OSTRUM_VAR_TIME", "2"}, {"OSTRUM_FLUSH_FREQUENCY", "1"}},
         nullptr,
         measure_flush,
         one_process},
        {"handover",
         {{"OSTRUM_VAR_TIME", "2"}, {"OSTRUM_FLUSH_FREQUENCY", "1"}, {"OSTRUM_ASYNC_FLUSHING", "1"}},
         nullptr,
         measure_handover,
         {1, 63}},
        {"latency",
         {{"OSTRUM_VAR_TIME", "2"}, {"OSTRUM_MAX_LOG_SIZE", "1"}, {"OSTRUM_ASYNC_FLUSHING", "1"}},
         nullptr,
         measure_latency,
         few_long_runs},
        {"system_calls", {{"OSTRUM_VAR_TIME", "3"}}, nullptr, measure_system_calls, {1, 3}},
        {"monitored",
         {{"OSTRUM_VAR_TIME", "3"}},
         register_monitored,
         nullptr,
         few_long_runs,
         directory_use::one_each,
         "0.3"}, // several polls
        {"one_context", {{"OSTRUM_VAR_TIME", "2"}}, register_one_context, nullptr},
        {"many_contexts", {{"OSTRUM_VAR_TIME", "2"}}, register_many_contexts, nullptr},
        {"last_counter", {{"OSTRUM_VAR_TIME", "1"}}, nullptr, measure_last_counter, new_process_each},
        {"query", {{"OSTRUM_VAR_TIME", "13"}}, nullptr, measure_query, few_long_runs},
        {"event_recorder", {}, register_event_recorder, nullptr, few_long_runs},
        {"metrics_library", {}, register_metrics_library, nullptr},
        {"init_new", {{"OSTRUM_VAR_TIME", "3"}}, nullptr, measure_init_new_file, new_process_each},
        {"init_existing",
         {{"OSTRUM_VAR_TIME", "3"}},
         nullptr,
         measure_init_existing_file,
         new_process_each,
         directory_use::shared},
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
