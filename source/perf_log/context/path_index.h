#ifndef OSTRUM_PERF_LOG_CONTEXT_PATH_INDEX_H
#define OSTRUM_PERF_LOG_CONTEXT_PATH_INDEX_H
// A context's memory of where in its trees the call paths are: the same calls come again and again, and a
// remembered node is checked faster than it is searched for, however many siblings it has. Nothing in it is
// trusted: the node must be of that very tree, and match the path in full. It may forget.
#include <cstdint>

#include "perf_log/aggregation/path_identity.h"

namespace ostrum {

struct path_entry {
    const bt_tree* tree;
    agg_node* node;
    // Of the trees that the entry leads into; any other one makes it void. Cut to 32 bits: an entry would
    // have to outlast four thousand million flushes to be taken for a new one.
    uint32_t generation;
    uint32_t mark;
};

inline constexpr uint32_t first_path_entries = 64;
inline constexpr uint32_t looks_per_path = 4; // neighbouring entries that a path may stand in

struct path_index {
    path_entry* entries; // the first ones, or owned
    uint32_t mask;       // their number, a power of two, less one
    path_entry first[first_path_entries];
};
void initialise_path_index(path_index& index); // of zeroed memory that stays where it is

// The trees in which a path is looked for, and which state of them.
struct path_place {
    const bt_tree* tree;
    uint32_t generation;
};

// Spreads the paths over the entries. A name stands for itself by its address: two copies of it only take up
// two entries.
[[gnu::always_inline]] inline uint32_t mark_of(const path_place& place, const path_identity& path)
{
    constexpr uint64_t odd_multiplier = 0x9E37'79B9'7F4A'7C15U;
    uint64_t mixed =
        (uint64_t{static_cast<uint32_t>(path.opcode)} << 32U) | static_cast<uint32_t>(path.lineno);
    mixed ^= reinterpret_cast<uintptr_t>(place.tree) * odd_multiplier;
    mixed += static_cast<uint64_t>(path.db_num) + (uint64_t{static_cast<uint32_t>(path.flags)} << 20U);
    if (path.opcode < 1) {
        mixed += reinterpret_cast<uintptr_t>(path.opname) << 8U;
    }
    return static_cast<uint32_t>((mixed * odd_multiplier) >> 32U);
}

// The node of the path, or null when it is not remembered.
[[gnu::always_inline]] inline agg_node* find_path(const path_index& index, const path_place& place,
                                                  const path_identity& path, uint32_t mark)
{
    for (uint32_t look = 0; look < looks_per_path; ++look) {
        const path_entry& entry = index.entries[(mark + look) & index.mask];
        if (entry.generation != place.generation || entry.node == nullptr) {
            return nullptr;
        }
        if (entry.mark == mark && entry.tree == place.tree) [[likely]] {
            return is_same_path(path, *entry.node) ? entry.node : nullptr;
        }
    }
    return nullptr;
}

// The index grows with the number of nodes that there are.
void remember_path(path_index& index, const path_place& place, uint32_t mark, agg_node* node,
                   int32_t node_count);
void release_path_index(path_index& index);

} // namespace ostrum
#endif
