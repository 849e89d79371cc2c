#include "perf_log/context/path_hints.h"

namespace ostrum {

namespace {

// Cheap, and different for the calls of one operation: a poor spread only costs a search.
path_hint& hint_of(path_hints& hints, const bt_tree* tree, const agg_node& key)
{
    uint64_t mixed = reinterpret_cast<uintptr_t>(tree) >> 4;
    mixed += uint64_t{static_cast<uint32_t>(key.opcode)} * 0x9E3779B1U;
    mixed += uint64_t{static_cast<uint32_t>(key.lineno)} * 0x85EBCA6BU;
    if (key.opcode < 1) {
        mixed += reinterpret_cast<uintptr_t>(key.ptr_opname);
    }
    return hints.entries[(mixed ^ (mixed >> 16)) % path_hint_count];
}

} // namespace

agg_node* find_hinted(path_hints& hints, uint64_t tree_generation, const bt_tree* tree, const agg_node& key)
{
    if (hints.tree_generation != tree_generation) {
        hints = {};
        hints.tree_generation = tree_generation;
        return nullptr;
    }
    const path_hint& hint = hint_of(hints, tree, key);
    const bool usable = hint.node != nullptr && hint.tree == tree && is_same_path(key, *hint.node);
    return usable ? hint.node : nullptr;
}

void remember_path(path_hints& hints, const bt_tree* tree, const agg_node& key, agg_node* node)
{
    hint_of(hints, tree, key) = {tree, node};
}

} // namespace ostrum
