#include "perf_log/context/path_index.h"

#include <span>

#include "util/resources.h"

namespace ostrum {

namespace {

constexpr uint32_t most_entries = 1U << 20; // beyond that many paths the rest is searched for

// In the first free place that looking for it comes by or where the same mark stands, or else over whatever
// stands in its own.
void place_entry(path_index& index, const path_entry& placed)
{
    for (uint32_t look = 0; look < looks_per_path; ++look) {
        path_entry& entry = index.entries[(placed.mark + look) & index.mask];
        const bool used = entry.node != nullptr && entry.generation == placed.generation;
        if (!used || (entry.mark == placed.mark && entry.tree == placed.tree)) {
            entry = placed;
            return;
        }
    }
    index.entries[placed.mark & index.mask] = placed;
}

heap_ptr<path_entry> owned_entries(path_index& index)
{
    return heap_ptr<path_entry>{index.entries != index.first ? index.entries : nullptr};
}

// Three quarters full is where looking begins to fail often.
bool is_crowded(const path_index& index, int32_t node_count)
{
    const uint32_t entries = index.mask + 1;
    return static_cast<uint32_t>(node_count) > entries / 4 * 3 && entries < most_entries;
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
    for (const path_entry& entry : old_entries) {
        if (entry.node != nullptr && entry.generation == generation) {
            place_entry(index, entry);
        }
    }
}

} // namespace

void initialise_path_index(path_index& index)
{
    index.entries = index.first;
    index.mask = first_path_entries - 1;
}

void remember_path(path_index& index, const path_place& place, uint32_t mark, agg_node* node,
                   int32_t node_count)
{
    if (is_crowded(index, node_count)) {
        grow(index, place.generation);
    }
    place_entry(index, {place.tree, node, place.generation, mark});
}

void release_path_index(path_index& index)
{
    const heap_ptr<path_entry> given_up = owned_entries(index);
    index = {};
    initialise_path_index(index);
}

} // namespace ostrum
