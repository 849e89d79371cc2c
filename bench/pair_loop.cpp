// The pairs of one row, so many of them, for a tool that counts instructions:
//
//   pair_loop LOOP PAIRS    in an empty directory
//   pair_loop               lists the loops
//
// What two runs of different length differ in are the pairs alone, without start-up and end.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "calls.h"

namespace ostrum_bench {
namespace {

struct pair_loop {
    const char* name;
    const char* what;
    const char* time_on;
    void (*open)(); // what stays open meanwhile
    void (*run)(int pairs);
    bool buckets = false;
};

void open_nothing()
{}

void open_outer()
{
    start_op(outer_opcode, "outer");
}

void open_tree()
{
    start_op(tree_root().opcode, tree_root().name, tree_root().line);
}

void run_op_pairs(int pairs)
{
    for (int pair = 0; pair < pairs; ++pair) {
        start_op(measured_opcode, "measured");
        end_op(measured_opcode, "measured");
    }
}

void run_fn_pairs(int pairs)
{
    for (int pair = 0; pair < pairs; ++pair) {
        start_fn(measured_opcode, "measured");
        end_fn(measured_opcode, "measured");
    }
}

void run_tree_pairs(int pairs)
{
    for (int walk = 0; walk < pairs / nested_paths; ++walk) {
        call_tree(nested_walk());
    }
}

constexpr const char* off = nullptr; // the library is kept from starting
constexpr pair_loop loops[] = {
    {"1", "pair, library disabled", off, open_nothing, run_op_pairs},
    {"2", "nested pair, nested levels not aggregated", "1", open_outer, run_op_pairs},
    {"3", "nested pair, aggregated, known path", "2", open_tree, run_tree_pairs},
    {"4fn", "outermost pair, function hooks", "2", open_nothing, run_fn_pairs},
    {"4op", "outermost pair, operation hooks", "2", open_nothing, run_op_pairs},
    {"5fn", "outermost pair, function hooks, live counter", "3", open_nothing, run_fn_pairs},
    {"5op", "outermost pair, operation hooks, live counter", "3", open_nothing, run_op_pairs},
    {"6", "nested pair, aggregated, known path, five buckets", "2", open_tree, run_tree_pairs, true},
};

void list_loops()
{
    for (const pair_loop& loop : loops) {
        std::printf("%s %s\n", loop.name, loop.what);
    }
}

void configure(const pair_loop& loop)
{
    setenv("OSTRUM_STATUS_CHECK_FREQUENCY", "3600", 1); // not a question of the time it takes
    if (loop.time_on == off) {
        setenv("OSTRUM_LOGDIR", "/nonexistent", 1);
    } else {
        setenv("OSTRUM_VAR_TIME", loop.time_on, 1);
    }
    if (loop.buckets) {
        std::ofstream("buckets.txt") << five_buckets;
        setenv("OSTRUM_OPCODE_BUCKET_FILE", "buckets.txt", 1);
    }
}

int run(const char* name, int pairs)
{
    for (const pair_loop& loop : loops) {
        if (std::strcmp(name, loop.name) == 0) {
            configure(loop);
            qel_platform_init();
            const bool started = ostrum_init() == 0;
            loop.open();
            loop.run(pairs);
            return started == (loop.time_on != off) ? 0 : 1;
        }
    }
    return 2;
}

} // namespace
} // namespace ostrum_bench

int main(int argc, char** argv)
{
    if (argc != 3) {
        ostrum_bench::list_loops();
        return argc == 1 ? 0 : 2;
    }
    return ostrum_bench::run(argv[1], std::stoi(argv[2]));
}
