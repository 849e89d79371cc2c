#include "perf_log/context/path_index.h"

#include <algorithm>
#include <span>

#include "util/resources.h"

namespace ostrum {

namespace {

constexpr uint32_t most_entries = 1U << 20; // beyond that many paths the rest is searched for

uint32_t hash_with_texts(uint32_t hash, const path_identity& path)
{
    uint64_t mixed = hash;
    for (const char* text : {path.opname, path.program, path.fname, path.obj_type}) {
        mixed = hash_bytes(mixed, text, strlen(text));
    }
    return static_cast<uint32_t>(mixed >> 32U);
}

// Nodes hold such a text cut, so that every call makes a new one: remembering them is of no use.
bool is_cut_in_nodes(const path_identity& path)
{
    const auto texts = {path.opname, path.program, path.fname, path.obj_type};
    return std::any_of(texts.begin(), texts.end(),
                       [](const char* text) { return strnlen(text, text_bytes) == text_bytes; });
}

// In the first free place that looking for it comes by or where the same hash stands, or else over whatever
// stands in its own.
void place_entry(path_index& index, const path_entry& placed)
{
    for (uint32_t look = 0; look < max_probes; ++look) {
        path_entry& entry = index.entries[(placed.hash + look) & index.mask];
        const bool used = entry.node != nullptr && entry.generation == placed.generation;
        if (!used || (entry.hash == placed.hash && entry.tree == placed.tree)) {
            index.used += used ? 0 : 1;
            entry = placed;
            return;
        }
    }
    index.entries[placed.hash & index.mask] = placed;
    index.displaced = true;
}

heap_ptr<path_entry> owned_entries(path_index& index)
{
    return heap_ptr<path_entry>{index.entries != index.first ? index.entries : nullptr};
}

// A load factor of three quarters is where looking begins to fail often. A small index has room for paths
// that displace one another, which they would do at each call; a nearly empty one is no remedy for that.
bool is_crowded(const path_index& index)
{
    constexpr uint32_t small = 512;
    const uint32_t entries = index.mask + 1;
    const bool has_no_place = index.displaced && entries < small && index.used > entries / 16;
    return has_no_place || (index.used > entries / 4 * 3 && entries < most_entries);
}

// Without memory for it the index stays as it is.
void grow(path_index& index, uint32_t generation)
{
    const uint32_t old_count = index.mask + 1;
    heap_ptr<path_entry> larger = heap_zeroed<path_entry>(size_t{old_count} * 2);
    if (!larger) {
        return;
    }
    const heap_ptr<path_entry> given_up = owned_entries(index);
    const std::span<const path_entry> old_entries(index.entries, old_count);
    index.entries = larger.release();
    index.mask = old_count * 2 - 1;
    index.used = 0;
    index.displaced = false;
    for (const path_entry& entry : old_entries) {
        if (entry.node != nullptr && entry.generation == generation) {
            place_entry(index, entry);
        }
    }
}

// All entries are void from here on. What a burst of paths has made large does not stay so.
void begin_generation(path_index& index, uint32_t generation)
{
    constexpr uint32_t wasteful = 8; // times what was used
    if (index.mask >= first_path_entries && index.used < index.mask / wasteful) {
        release_path_index(index);
    }
    index.generation = generation;
    index.used = 0;
    index.displaced = false;
}

} // namespace

void initialise_path_index(path_index& index)
{
    index.entries = index.first;
    index.mask = first_path_entries - 1;
}

agg_node* find_path_by_texts(path_index& index, path_place place, path_identity path, uint32_t hash)
{
    const path_entry* entry = find_hash(index, place, hash_with_texts(hash, path));
    if (entry == nullptr || !is_same_path(path, *entry->node)) {
        return nullptr;
    }
    agg_node* node = entry->node; // the entry may be the one that is written over
    place_entry(index, {place.tree, node, place.generation, hash});
    return node;
}

// Of paths that share a hash each has an entry by its texts, and the last one that was asked for the one of
// the hash.
void remember_path(path_index& index, const path_place& place, const path_identity& path, agg_node* node)
{
    if (is_cut_in_nodes(path)) {
        return;
    }
    if (place.generation != index.generation) {
        begin_generation(index, place.generation);
    }
    if (is_crowded(index)) {
        grow(index, place.generation);
    }
    const uint32_t hash = hash_of(place, path);
    if (const path_entry* namesake = find_hash(index, place, hash)) {
        agg_node* other = namesake->node;
        place_entry(index, {place.tree, other, place.generation, hash_with_texts(hash, stored_path(*other))});
        place_entry(index, {place.tree, node, place.generation, hash_with_texts(hash, path)});
    }
    place_entry(index, {place.tree, node, place.generation, hash});
}

void release_path_index(path_index& index)
{
    const heap_ptr<path_entry> given_up = owned_entries(index);
    index = {};
    initialise_path_index(index);
}

} // namespace ostrum
