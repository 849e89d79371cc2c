#include "rows.h"

#include <limits>

namespace ostrum_bench {

namespace {

constexpr std::optional<double> unlimited{};

const std::vector<sample>* find_samples(const sample_name& wanted, const scenario_samples& values)
{
    const auto scenario = values.find(wanted.scenario);
    if (scenario == values.end()) {
        return nullptr;
    }
    const auto found = scenario->second.find(wanted.name);
    return found != scenario->second.end() ? &found->second : nullptr;
}

double compare(figure kind, double measured, double base)
{
    switch (kind) {
    case figure::added_floors:
        return measured - base;
    case figure::times:
        return measured / base;
    case figure::times_faster:
        return base / measured;
    case figure::floors:
    case figure::plain:
        break;
    }
    return measured;
}

} // namespace

std::span<const row> rows()
{
    using enum figure;
    // A row's words and limits first, then where its figure comes from.
    // clang-format off
    static const row all[] = {
        {1, floors, "pair, library disabled", "F", 1.2, 1.1,
         {"disabled", "pair"}},
        {2, floors, "nested pair, nested levels not aggregated", "F", 1.4, 1.25,
         {"timing_only", "nested pair"}},
        {3, floors, "nested pair, aggregated, known path", "F", 1.9, 1.6,
         {"nested", "nested pair in the tree"}},
        {4, floors, "outermost pair, function hooks", "F", 2.0, 1.7,
         {"outermost", "outermost pair, function hooks"}},
        {4, floors, "outermost pair, operation hooks", "F", 2.4, 2.0,
         {"outermost", "outermost pair, operation hooks"}},
        {5, added_floors, "live counter adds, function hooks", "F", 0.45, 0.3,
         {"outermost_live", "outermost pair, function hooks"},
         {"outermost", "outermost pair, function hooks"}},
        {5, added_floors, "live counter adds, operation hooks", "F", 0.45, 0.3,
         {"outermost_live", "outermost pair, operation hooks"},
         {"outermost", "outermost pair, operation hooks"}},
        {6, added_floors, "five buckets add", "F", 0.15, 0.08,
         {"nested_buckets", "nested pair in the tree"},
         {"nested", "nested pair in the tree"}},
        {7, times, "2 threads against 1, live counters off", "x", 1.10, 1.03,
         {"keyed_tree", "keyed tree, threads: 2"},
         {"keyed_tree", "keyed tree, threads: 1"}},
        {7, times, "2 threads against 1, live counters on", "x", 1.15, 1.05,
         {"keyed_tree_live", "keyed tree, threads: 2"},
         {"keyed_tree_live", "keyed tree, threads: 1"}},
        {7, times, "a context that another thread has made", "x", unlimited, unlimited,
         {"keyed_tree", "keyed tree, context of another thread"},
         {"keyed_tree", "keyed tree, threads: 1"}},
        {8, floors, "2 threads, empty operations, one live counter", "F", 6.5, 4,
         {"one_counter", "empty operations, threads: 2"}},
        {9, times, "100 siblings against 10, fixed order", "x", 1.15, 1.1,
         {"siblings", "fixed order, siblings: 100"},
         {"siblings", "fixed order, siblings: 10"}},
        {9, times, "1,000 siblings against 10, fixed order", "x", 1.3, 1.15,
         {"siblings", "fixed order, siblings: 1000"},
         {"siblings", "fixed order, siblings: 10"}},
        {9, times, "10,000 siblings against 10, fixed order", "x", 4, 3,
         {"siblings", "fixed order, siblings: 10000"},
         {"siblings", "fixed order, siblings: 10"}},
        {10, times, "100 siblings against 10, random order", "x", 1.25, 1.15,
         {"siblings", "random order, siblings: 100"},
         {"siblings", "random order, siblings: 10"}},
        {10, times, "1,000 siblings against 10, random order", "x", 1.5, 1.25,
         {"siblings", "random order, siblings: 1000"},
         {"siblings", "random order, siblings: 10"}},
        {10, times, "10,000 siblings against 10, random order", "x", 4.5, 3.5,
         {"siblings", "random order, siblings: 10000"},
         {"siblings", "random order, siblings: 10"}},
        {11, floors, "first visit of a path, cold", "F", 16, 12,
         {"first_visit", "first visit"}},
        {11, floors, "first visit of a path, after a flush", "F", 8, 5,
         {"first_visit_again", "first visit"}},
        {12, plain, "heap per path beyond the node, trees", "B", 128, 72,
         {"heap", "bytes beyond the node, trees"}},
        {12, plain, "heap per path beyond the node, siblings", "B", 128, 72,
         {"heap", "bytes beyond the node, siblings"}},
        {13, floors, "flush per record, 1,000 paths", "F", 2.5, 1.8,
         {"flush", "flush of one, records: 1000"}},
        {13, floors, "flush per record, 10,000 paths", "F", 4.5, 3.5,
         {"flush", "flush of one, records: 10000"}},
        {14, times_faster, "flush against fprintf, 1,000 paths", "x", 4, 6,
         {"flush", "flush of one, records: 1000"},
         {"flush", "fprintf of one, records: 1000"}},
        {14, times_faster, "flush against fprintf, 10,000 paths", "x", 4, 6,
         {"flush", "flush of one, records: 10000"},
         {"flush", "fprintf of one, records: 10000"}},
        {15, floors, "hand-over, flusher busy", "F", 35, 25,
         {"handover", "busy"}},
        {15, floors, "hand-over, flusher asleep", "F", 85, 65,
         {"handover", "asleep"}},
        {15, times, "hand-over, 10,000 nodes against 10", "x", 1.25, 1.1,
         {"handover", "asleep, big tree"},
         {"handover", "asleep"}},
        {15, times, "the same, flusher busy", "x", unlimited, unlimited,
         {"handover", "busy, big tree"},
         {"handover", "busy"}},
        {15, floors, "hand-over, flusher asleep, CPU time only", "F", unlimited, unlimited,
         {"handover", "asleep, CPU time"}},
        {15, floors, "a wake-up without the library", "F", unlimited, unlimited,
         {"handover", "bare wake"}},
        {16, times, "p99 of a pair, flusher at work against quiet", "x", 1.5, 1.1,
         {"latency", "p99, flusher at work"},
         {"latency", "p99, quiet"}},
        {16, floors, "p99.9 of a pair, flusher at work", "F", 10, 6,
         {"latency", "p99.9, flusher at work"}},
        {16, floors, "p99.9 of a pair, quiet", "F", unlimited, unlimited,
         {"latency", "p99.9, quiet"}},
        {17, plain, "system calls in 1,000,000 steady pairs", "", 50, 0,
         {"system_calls", "system calls"}},
        {18, times, "outermost pair, polled at 10 Hz against alone", "x", 1.1, 1.03,
         {"monitored", "polled"},
         {"monitored", "alone"}},
        {19, times, "keyed pair, 256 contexts against 1, one used", "x", 1.2, 1.05,
         {"many_contexts", "keyed pair"},
         {"one_context", "keyed pair"}},
        {19, times, "keyed pair, 256 contexts against 1, all in turn", "x", unlimited, unlimited,
         {"many_contexts", "keyed pair, all in turn"},
         {"one_context", "keyed pair"}},
        {20, plain, "insert of the 4,000th counter key", "ms", unlimited, 1,
         {"last_counter", "insert, ms"}},
        {20, plain, "query of 4,096 counters, slowest mask", "ms", unlimited, 1,
         {"query", "slowest mask, ms"}},
        {0, floors, "1 thread, empty operations, one live counter", "F", unlimited, unlimited,
         {"one_counter", "empty operations, threads: 1"}},
        {0, floors, "keyed pair, one context", "F", unlimited, unlimited,
         {"one_context", "keyed pair"}},
        {0, floors, "LTTng-UST: both tracepoints, recorded", "F", unlimited, unlimited,
         {"event_recorder", "recorded pair"}},
        {0, floors, "prometheus-cpp: histogram and counter, 1 thread", "F", unlimited, unlimited,
         {"metrics_library", "observed pair, threads: 1"}},
        {0, floors, "prometheus-cpp: histogram and counter, 2 threads", "F", unlimited, unlimited,
         {"metrics_library", "observed pair, threads: 2"}},
        {0, plain, "start-up, data file made", "ns", unlimited, unlimited,
         {"init_new", "ostrum_init, data file made"}},
        {0, plain, "start-up, data file there", "ns", unlimited, unlimited,
         {"init_existing", "ostrum_init, data file there"}},
    };
    // clang-format on
    return all;
}

std::optional<double> figure_of(const row& line, const scenario_samples& values)
{
    const std::vector<sample>* measured = find_samples(line.measured, values);
    if (measured == nullptr) {
        return std::nullopt;
    }
    if (line.kind == figure::plain) {
        return median_value(*measured);
    }
    if (line.base.scenario == nullptr) {
        return median_floors(*measured);
    }
    const std::vector<sample>* base = find_samples(line.base, values);
    if (base == nullptr) {
        return std::nullopt;
    }
    return compare(line.kind, median_floors(*measured), median_floors(*base));
}

repetition_counts repetitions_of(const row& line, const scenario_samples& values)
{
    repetition_counts fewest{std::numeric_limits<int>::max(), std::numeric_limits<int>::max()};
    for (const sample_name& source : {line.measured, line.base}) {
        const std::vector<sample>* found =
            source.scenario != nullptr ? find_samples(source, values) : nullptr;
        if (found != nullptr && undisturbed_count(*found) < fewest.undisturbed) {
            fewest = {undisturbed_count(*found), static_cast<int>(found->size())};
        }
    }
    return fewest;
}

bool reaches(const row& line, double value)
{
    const std::optional<double> limit = line.reach ? line.reach : line.aim;
    return !limit || (line.kind == figure::times_faster ? value >= *limit : value <= *limit);
}

} // namespace ostrum_bench
