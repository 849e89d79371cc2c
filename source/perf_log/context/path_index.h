#ifndef OSTRUM_PERF_LOG_CONTEXT_PATH_INDEX_H
#define OSTRUM_PERF_LOG_CONTEXT_PATH_INDEX_H
// A context's memory of where in its trees the call paths are: the same calls come again and again, and a
// remembered node is checked faster than it is searched for, however many siblings it has. Nothing in it is
// trusted: the node must be of that very tree, and match the path in full. It may forget: a hash table with
// open addressing, few probes and no deletion but by generation.
#include <cstdint>

#include "perf_log/aggregation/path_identity.h"
#include "util/byte_hash.h"

namespace ostrum {

struct path_entry {
    const bt_tree* tree;
    agg_node* node;
    // Of the trees that the entry leads into; any other one makes it void. Cut to 32 bits: an entry would
    // have to outlast four thousand million flushes to be taken for a new one.
    uint32_t generation;
    uint32_t hash;
};

inline constexpr uint32_t first_path_entries = 64;
inline constexpr uint32_t max_probes = 4; // neighbouring entries that a path may stand in

struct path_index {
    path_entry* entries; // the first ones, or owned
    uint32_t mask;       // their number, a power of two, less one
    uint32_t generation; // of the trees that were there when a path was last remembered
    uint32_t used;       // entries of that generation
    bool displaced;      // a path of that generation has been written over by another one
    path_entry first[first_path_entries];
};
void initialise_path_index(path_index& index); // of zeroed memory that stays where it is

// The trees in which a path is looked for, and which state of them.
struct path_place {
    const bt_tree* tree;
    uint32_t generation;
};

// Spreads the paths over the entries, without a look at their texts. A name stands for itself by its address:
// two copies of it only take up two entries.
[[gnu::always_inline]] inline uint32_t hash_of(const path_place& place, const path_identity& path)
{
    uint64_t mixed =
        (uint64_t{static_cast<uint32_t>(path.opcode)} << 32U) | static_cast<uint32_t>(path.lineno);
    mixed ^= reinterpret_cast<uintptr_t>(place.tree) * odd_multiplier;
    mixed += static_cast<uint64_t>(path.db_num) + (uint64_t{static_cast<uint32_t>(path.flags)} << 20U);
    if (path.opcode < 1) {
        mixed += reinterpret_cast<uintptr_t>(path.opname) << 8U;
    }
    return static_cast<uint32_t>((mixed * odd_multiplier) >> 32U);
}

// The entry of that hash, or null.
[[gnu::always_inline]] inline const path_entry* find_hash(const path_index& index, const path_place& place,
                                                          uint32_t hash)
{
    for (uint32_t look = 0; look < max_probes; ++look) {
        const path_entry& entry = index.entries[(hash + look) & index.mask];
        if (entry.generation != place.generation || entry.node == nullptr) {
            return nullptr;
        }
        if (entry.hash == hash && entry.tree == place.tree) [[likely]] {
            return &entry;
        }
    }
    return nullptr;
}

// For a path whose hash stands for another one, which differs from it in its texts. Takes copies: hooks then
// need not have the path in memory.
agg_node* find_path_by_texts(path_index& index, path_place place, path_identity path, uint32_t hash);

// The node of the path, or null when it is not remembered.
[[gnu::always_inline]] inline agg_node* find_path(path_index& index, const path_place& place,
                                                  const path_identity& path)
{
    const uint32_t hash = hash_of(place, path);
    const path_entry* entry = find_hash(index, place, hash);
    if (entry == nullptr || is_same_path(path, *entry->node)) [[likely]] {
        return entry != nullptr ? entry->node : nullptr;
    }
    return find_path_by_texts(index, {place.tree, place.generation},
                              {path.opcode, path.flags, path.lineno, path.db_num, path.program, path.opname,
                               path.fname, path.obj_type},
                              hash);
}

// For a path that has not been found. The index grows with what it remembers, and becomes small again when it
// remembers little from one flush to the next.
void remember_path(path_index& index, const path_place& place, const path_identity& path, agg_node* node);
void release_path_index(path_index& index);

} // namespace ostrum
#endif
