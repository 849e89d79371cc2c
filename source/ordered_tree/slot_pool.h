#ifndef OSTRUM_ORDERED_TREE_SLOT_POOL_H
#define OSTRUM_ORDERED_TREE_SLOT_POOL_H
// Memory for many records of one size that all go at once, an arena: slots cut from chunks of the heap. One
// thread at a time.
#include <cstddef>
#include <cstdint>

namespace ostrum {

inline constexpr size_t cache_line_bytes = 64;

struct slot_chunk {
    slot_chunk* next;
    size_t capacity;      // slots
    unsigned char* slots; // in this same block, from the first cache line that begins in it
};

struct slot_pool {
    size_t slot_bytes;   // a multiple of 8
    slot_chunk* first;   // owned; in the order in which they are filled
    slot_chunk* current; // the one being filled; null = none is in use
    size_t taken;        // slots of the current chunk that are in use
    size_t total;        // slots in all chunks
};

// Null when memory is short. The slot holds rubbish.
void* take_slot(slot_pool& pool);
inline void put_back_last(slot_pool& pool) // of a slot just taken
{
    --pool.taken;
}

// Takes all slots back. Chunks that held some of them stay for the next ones; those that did not are given
// back to the heap. So a pool holds what it needed since it was emptied last, and nothing once it is
// emptied twice running.
void empty_pool(slot_pool& pool);

void release_pool(slot_pool& pool); // all of its memory

// Calls the function with each slot in use, in the order in which they were taken.
template <typename Function>
void for_each_slot(const slot_pool& pool, Function call)
{
    for (slot_chunk* chunk = pool.current != nullptr ? pool.first : nullptr; chunk != nullptr;) {
        const bool last = chunk == pool.current;
        const size_t in_use = last ? pool.taken : chunk->capacity;
        for (size_t i = 0; i < in_use; ++i) {
            call(chunk->slots + i * pool.slot_bytes);
        }
        chunk = last ? nullptr : chunk->next;
    }
}

} // namespace ostrum
#endif
