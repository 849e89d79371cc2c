// Start/end pairs of known paths, steered by the environment of the scenario.
#include <atomic>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "calls.h"
#include "scenarios.h"

namespace ostrum_bench {
namespace {

constexpr int many_contexts = 256;

benchmark::Counter units(int count)
{
    return {static_cast<double>(count), benchmark::Counter::kAvgThreads};
}

void register_op_pair(const char* name)
{
    register_timed(name, [](benchmark::State& state) {
        for (auto _ : state) {
            start_op(measured_opcode, "measured");
            end_op(measured_opcode, "measured");
        }
    });
}

void register_fn_pair(const char* name)
{
    register_timed(name, [](benchmark::State& state) {
        for (auto _ : state) {
            start_fn(measured_opcode, "measured");
            end_fn(measured_opcode, "measured");
        }
    });
}

void register_nested_walk()
{
    start_op(tree_root().opcode, tree_root().name, tree_root().line); // stays open
    call_tree(nested_walk());
    register_timed("nested pair in the tree", [](benchmark::State& state) {
        const std::span<const tree_call> calls = nested_walk();
        for (auto _ : state) {
            call_tree(calls);
        }
        state.counters[units_counter] = units(nested_paths);
    });
}

// A keyed context that belongs to the thread that runs the benchmark: most such threads live for one
// repetition only.
class own_context {
public:
    own_context() { call_keyed_tree(key_, tree_walk()); }
    ~own_context() { ostrum_release_liptr_by_key(own_pid, key_); }
    own_context(const own_context&) = delete;
    own_context& operator=(const own_context&) = delete;
    [[nodiscard]] int32_t key() const { return key_; }

private:
    static std::atomic<int32_t> last_key;
    int32_t key_ = ++last_key;
};
std::atomic<int32_t> own_context::last_key = 0;

void walk_keyed_tree(benchmark::State& state, int32_t key)
{
    for ([[maybe_unused]] auto _ : state) {
        call_keyed_tree(key, tree_walk());
    }
    state.counters[units_counter] = units(tree_paths);
}

} // namespace

void register_disabled()
{
    qel_platform_init();
    if (ostrum_init() == 0) {
        throw std::runtime_error("ostrum_init should have failed");
    }
    register_op_pair("pair");
}

void register_timing_only()
{
    start_library();
    start_op(outer_opcode, "outer"); // stays open
    register_op_pair("nested pair");
}

void register_nested()
{
    start_library();
    register_nested_walk();
}

void register_nested_buckets()
{
    std::ofstream("buckets.txt") << five_buckets;
    start_library();
    register_nested_walk();
}

void register_outermost()
{
    start_library();
    register_fn_pair("outermost pair, function hooks");
    register_op_pair("outermost pair, operation hooks");
}

// Each thread walks the whole tree in a keyed context that it has made itself.
void register_keyed_tree()
{
    start_library();
    for (const int threads : {1, 2}) {
        const std::string name = "keyed tree, threads: " + std::to_string(threads);
        register_timed(name, [](benchmark::State& state) {
            const own_context context;
            walk_keyed_tree(state, context.key());
        })->Threads(threads);
    }
    register_timed("keyed tree, context of another thread", [](benchmark::State& state) {
        constexpr int32_t key = 0;
        std::thread([] { call_keyed_tree(key, tree_walk()); }).join();
        walk_keyed_tree(state, key);
        ostrum_release_liptr_by_key(own_pid, key);
    });
}

// Who waits for the other thread's update is asleep now and then: with two, the time on the wall counts.
void register_one_counter()
{
    start_library();
    for (const int threads : {1, 2}) {
        const std::string name = "empty operations, threads: " + std::to_string(threads);
        auto* pair = register_timed(name, [](benchmark::State& state) {
            const own_context context;
            for (auto _ : state) {
                start_keyed(context.key(), measured_opcode, "measured");
                end_keyed(context.key(), measured_opcode, "measured");
            }
        });
        run_in_threads(pair, threads);
    }
}

// The process has one keyed context here and many of them there: scenarios of their own.
void register_one_context()
{
    start_library();
    register_timed("keyed pair", [](benchmark::State& state) {
        for (auto _ : state) {
            start_keyed(0, measured_opcode, "measured");
            end_keyed(0, measured_opcode, "measured");
        }
    });
}

void register_many_contexts()
{
    register_one_context();
    for (int32_t key = 0; key < many_contexts; ++key) {
        start_keyed(key, measured_opcode, "measured");
        end_keyed(key, measured_opcode, "measured");
    }
    register_timed("keyed pair, all in turn", [](benchmark::State& state) {
        int32_t key = 0;
        for (auto _ : state) {
            start_keyed(key, measured_opcode, "measured");
            end_keyed(key, measured_opcode, "measured");
            key = (key + 1) % many_contexts;
        }
    });
}

} // namespace ostrum_bench
