// What the number of call paths costs: siblings of one caller, first visits, memory.
#include <algorithm>
#include <fstream>
#include <string>

#include <malloc.h>

#include "calls.h"
#include "scenarios.h"

namespace ostrum_bench {
namespace {

constexpr size_t random_draws = 65'536; // more than a branch predictor learns by heart
constexpr int visited_paths = 1'000;
constexpr int heap_trees = 500; // each below a caller of its own
constexpr int heap_siblings = 10'000;
constexpr double node_bytes = 768;

void register_sibling_walk(const std::string& order, int count, std::vector<uint32_t> (*walk_of)(int count))
{
    const std::string name = order + ", siblings: " + std::to_string(count);
    register_timed(name, [count, walk_of](benchmark::State& state) {
        const std::vector<uint32_t> opcodes = walk_of(count);
        const std::string parent = "parent of " + std::to_string(count);
        start_op(0, parent.c_str());
        call_siblings(shuffled_opcodes(count)); // the nodes are made before the measurement
        call_siblings(opcodes);
        size_t next = 0;
        for (auto _ : state) {
            start_op(opcodes[next], "sibling");
            end_op(opcodes[next], "sibling");
            next = next + 1 < opcodes.size() ? next + 1 : 0;
        }
        end_op(0, parent.c_str());
    });
}

// First visits of that many paths below an open operation, per path.
double first_visits_ns(std::span<const uint32_t> opcodes)
{
    const double total_ns = elapsed_ns(CLOCK_THREAD_CPUTIME_ID, [&] { call_siblings(opcodes); });
    return total_ns / static_cast<double>(opcodes.size());
}

double heap_in_use()
{
    const struct mallinfo2 heap = mallinfo2();
    return static_cast<double>(heap.uordblks + heap.hblkhd);
}

// Pages of the process that no file stands behind: where nodes live that are not on the heap.
double own_pages_in_use()
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        double kilobytes = 0;
        if (word == "RssAnon:" && status >> kilobytes) {
            return kilobytes * 1024;
        }
    }
    return 0;
}

// What the work leaves in memory for each of so many paths, beyond the node itself.
template <typename Work>
double bytes_beyond_node(int paths, Work work)
{
    const double heap_before = heap_in_use();
    const double pages_before = own_pages_in_use();
    work();
    const double grown = std::max(heap_in_use() - heap_before, own_pages_in_use() - pages_before);
    return grown / paths - node_bytes;
}

} // namespace

void register_siblings()
{
    start_library();
    for (const int count : {10, 100, 1'000, 10'000}) {
        register_sibling_walk("fixed order", count, shuffled_opcodes);
        register_sibling_walk("random order", count,
                              [](int among) { return random_opcodes(among, random_draws); });
    }
}

// Of a process that has made no path yet but the caller's.
samples measure_first_visit_cold(int /*repetitions*/)
{
    const std::vector<uint32_t> opcodes = shuffled_opcodes(visited_paths);
    const double floor_ns = floor_once();
    start_library();
    start_op(outer_opcode, "outer");
    const double visit_ns = first_visits_ns(opcodes);
    end_op(outer_opcode, "outer");
    return {{floor_name, {floor_ns}}, {"first visit", {visit_ns}}};
}

// With a maximum of one operation between flushes, each outermost start writes what the last one left.
samples measure_first_visit_after_flush(int repetitions)
{
    const std::vector<uint32_t> opcodes = shuffled_opcodes(visited_paths);
    samples values;
    start_library();
    for (int repetition = -1; repetition < repetitions; ++repetition) {
        start_op(outer_opcode, "outer");
        const double visit_ns = first_visits_ns(opcodes);
        end_op(outer_opcode, "outer");
        if (repetition >= 0) { // the very first one had no flush before it
            values["first visit"].push_back(visit_ns);
            values[floor_name].push_back(floor_once());
        }
    }
    return values;
}

samples measure_heap(int /*repetitions*/)
{
    const std::vector<uint32_t> opcodes = shuffled_opcodes(heap_siblings);
    const std::vector<tree_call>& calls = tree_walk();
    start_library();
    start_op(outer_opcode, "outer");
    call_tree(calls);
    const double in_trees = bytes_beyond_node(heap_trees * (tree_paths + 1), [&] {
        for (uint32_t caller = 0; caller < heap_trees; ++caller) {
            start_op(first_sibling_opcode + caller, "caller");
            call_tree(calls);
            end_op(first_sibling_opcode + caller, "caller");
        }
    });
    start_op(outer_opcode, "caller of the siblings");
    const double as_siblings = bytes_beyond_node(heap_siblings, [&] { call_siblings(opcodes); });
    return {{floor_name, {floor_once()}},
            {"bytes beyond the node, trees", {in_trees}},
            {"bytes beyond the node, siblings", {as_siblings}}};
}

} // namespace ostrum_bench
