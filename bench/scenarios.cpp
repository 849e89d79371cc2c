#include "scenarios.h"

#include <string>

namespace ostrum_bench {

// time_on: bit 0x1 keeps live counters of outermost operations, bit 0x2 aggregates nested ones and keeps
// the trace file open.
std::span<const scenario> scenarios()
{
    static const std::vector<scenario> all{
        {"disabled", {{"OSTRUM_LOGDIR", "/nonexistent"}}, register_disabled, nullptr, true},
        {"timing_off", {{"OSTRUM_VAR_TIME", "0"}}, register_timing_off, nullptr, true},
        {"nested", {{"OSTRUM_VAR_TIME", "2"}}, register_nested, nullptr, true},
        {"outermost", {{"OSTRUM_VAR_TIME", "2"}}, register_outermost, nullptr, true},
        {"outermost_live", {{"OSTRUM_VAR_TIME", "3"}}, register_outermost_live, nullptr, true},
        {"keyed", {{"OSTRUM_VAR_TIME", "2"}}, register_keyed, nullptr, true},
        {"keyed_live", {{"OSTRUM_VAR_TIME", "3"}}, register_keyed_live, nullptr, true},
        {"siblings", {{"OSTRUM_VAR_TIME", "2"}}, register_siblings, nullptr, true},
        {"flush", {{"OSTRUM_VAR_TIME", "2"}, {"OSTRUM_MAX_LOG_SIZE", "1"}}, register_flush, nullptr, true},
        {"init_new", {{"OSTRUM_VAR_TIME", "3"}}, nullptr, measure_init_new_file, true},
        {"init_existing", {{"OSTRUM_VAR_TIME", "3"}}, nullptr, measure_init_existing_file, false},
    };
    return all;
}

samples run_scenario(const scenario& chosen, const run_length& length)
{
    if (chosen.register_benchmarks == nullptr) {
        return chosen.measure();
    }
    // Interleaved: the floor is read between the repetitions of what is compared with it.
    std::vector<std::string> words{"ostrum_bench",
                                   "--benchmark_repetitions=" + std::to_string(length.repetitions),
                                   std::string("--benchmark_min_time=") + length.min_time_s,
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
