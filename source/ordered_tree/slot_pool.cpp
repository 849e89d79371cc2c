#include "ordered_tree/slot_pool.h"

#include "os/os_calls.h"

#include <algorithm>

namespace ostrum {

namespace {

constexpr size_t least_chunk_bytes = 512; // but two slots
constexpr size_t most_chunk_bytes = size_t{64} * 1024;
constexpr size_t spare_part = 32; // of the slots that there are: how far a chunk reaches beyond the need

size_t capacity_of_next_chunk(const slot_pool& pool)
{
    const size_t fewest = std::max<size_t>(least_chunk_bytes / pool.slot_bytes, 2);
    const size_t most = std::max(most_chunk_bytes / pool.slot_bytes, fewest);
    return std::clamp(pool.total / spare_part, fewest, most);
}

unsigned char* first_line_behind(void* place)
{
    const auto address = reinterpret_cast<uintptr_t>(place);
    return static_cast<unsigned char*>(place) +
           (cache_line_bytes - address % cache_line_bytes) % cache_line_bytes;
}

// Null when memory is short.
slot_chunk* add_chunk(slot_pool& pool, slot_chunk*& link)
{
    const size_t capacity = capacity_of_next_chunk(pool);
    auto* chunk = static_cast<slot_chunk*>(
        os::reallocate(nullptr, sizeof(slot_chunk) + cache_line_bytes + capacity * pool.slot_bytes));
    if (chunk != nullptr) {
        *chunk = {nullptr, capacity, first_line_behind(chunk + 1)};
        pool.total += capacity;
        link = chunk;
    }
    return chunk;
}

void release_chunks(slot_pool& pool, slot_chunk*& link)
{
    while (slot_chunk* chunk = link) {
        link = chunk->next;
        pool.total -= chunk->capacity;
        os::release(chunk);
    }
}

} // namespace

void* take_slot(slot_pool& pool)
{
    if (pool.current == nullptr || pool.taken == pool.current->capacity) {
        slot_chunk*& link = pool.current != nullptr ? pool.current->next : pool.first;
        slot_chunk* chunk = link != nullptr ? link : add_chunk(pool, link);
        if (chunk == nullptr) {
            return nullptr;
        }
        pool.current = chunk;
        pool.taken = 0;
    }
    return pool.current->slots + pool.slot_bytes * pool.taken++;
}

void empty_pool(slot_pool& pool)
{
    release_chunks(pool, pool.current != nullptr ? pool.current->next : pool.first);
    pool.current = nullptr;
    pool.taken = 0;
}

void release_pool(slot_pool& pool)
{
    pool.current = nullptr;
    pool.taken = 0;
    release_chunks(pool, pool.first);
}

} // namespace ostrum
