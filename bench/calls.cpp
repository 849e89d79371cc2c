#include "calls.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <stdexcept>

namespace ostrum_bench {

namespace {

struct tree_path {
    int level; // 0 = outermost
    uint32_t opcode;
    const char* name;
    int32_t line;
};

// In the order of the calls. Some operations are called from several places.
constexpr tree_path paths[tree_paths] = {
    {0, 7, "op_search", 110},     {1, 101, "check_request", 114},   {1, 102, "parse_template", 121},
    {2, 103, "find_type", 45},    {2, 104, "read_fields", 80},      {1, 105, "begin_transaction", 130},
    {1, 3, "op_read", 140},       {2, 106, "lock_object", 52},      {2, 107, "load_object", 60},
    {3, 108, "query_rows", 210},  {4, 109, "bind_values", 33},      {4, 110, "fetch_rows", 41},
    {3, 111, "decode_rows", 228}, {2, 106, "lock_object", 71},      {1, 112, "sort_results", 152},
    {2, 113, "compare_keys", 18}, {1, 114, "build_answer", 160},    {2, 104, "read_fields", 95},
    {2, 115, "mask_fields", 99},  {1, 116, "end_transaction", 171},
};

std::vector<tree_call> walk_of_paths()
{
    std::vector<tree_call> calls;
    std::vector<tree_path> open;
    const auto close_down_to = [&](int level) {
        for (; !open.empty() && open.back().level >= level; open.pop_back()) {
            calls.push_back({false, open.back().opcode, open.back().name, open.back().line});
        }
    };
    for (const tree_path& path : paths) {
        close_down_to(path.level);
        calls.push_back({true, path.opcode, path.name, path.line});
        open.push_back(path);
    }
    close_down_to(0);
    return calls;
}

} // namespace

void start_library()
{
    qel_platform_init();
    if (ostrum_init() != 0) {
        throw std::runtime_error("ostrum_init failed");
    }
}

const std::vector<tree_call>& tree_walk()
{
    static const std::vector<tree_call> calls = walk_of_paths();
    return calls;
}

std::span<const tree_call> nested_walk()
{
    return std::span(tree_walk()).subspan(1, tree_walk().size() - 2);
}

const tree_call& tree_root()
{
    return tree_walk().front();
}

void run_in_threads(benchmark::internal::Benchmark* pair, int threads)
{
    pair->Threads(threads);
    if (threads > 1) {
        pair->UseRealTime();
    }
}

// In an order that a tree gains nothing from.
std::vector<uint32_t> shuffled_opcodes(int count)
{
    std::vector<uint32_t> opcodes(static_cast<size_t>(count));
    std::iota(opcodes.begin(), opcodes.end(), first_sibling_opcode);
    std::shuffle(opcodes.begin(), opcodes.end(), std::mt19937(1)); // NOLINT(cert-msc32-c,cert-msc51-cpp)
    return opcodes;
}

std::vector<uint32_t> random_opcodes(int count, size_t draws)
{
    std::mt19937 generator(2); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same sequence in every run
    std::uniform_int_distribution<uint32_t> draw(0, static_cast<uint32_t>(count) - 1);
    std::vector<uint32_t> opcodes(draws);
    std::generate(opcodes.begin(), opcodes.end(), [&] { return first_sibling_opcode + draw(generator); });
    return opcodes;
}

} // namespace ostrum_bench
