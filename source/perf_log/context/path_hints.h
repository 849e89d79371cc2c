#ifndef OSTRUM_PERF_LOG_CONTEXT_PATH_HINTS_H
#define OSTRUM_PERF_LOG_CONTEXT_PATH_HINTS_H
// A context's memory of where it found call paths lately: the same calls come again and again, and a
// remembered node is checked faster than its hash is computed. A hint is never trusted: the node must be
// of that very tree and match the key in full.
#include <cstdint>

#include "perf_log/aggregation/agg_node.h"

namespace ostrum {

inline constexpr uint32_t path_hint_count = 64;

struct path_hint {
    const bt_tree* tree;
    agg_node* node; // null = free
};

struct path_hints {
    uint64_t tree_generation; // of the tree that the hints lead into; any other makes them void
    path_hint entries[path_hint_count];
};

// The node of the key's path in the tree, or null when it is not remembered.
agg_node* find_hinted(path_hints& hints, uint64_t tree_generation, const bt_tree* tree, const agg_node& key);
void remember_path(path_hints& hints, const bt_tree* tree, const agg_node& key, agg_node* node);

} // namespace ostrum
#endif
