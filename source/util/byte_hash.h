#ifndef OSTRUM_UTIL_BYTE_HASH_H
#define OSTRUM_UTIL_BYTE_HASH_H
// For tables in this process's memory only: nothing that is stored or compared elsewhere depends on it.
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ostrum {

// 2^64 divided by the golden ratio: spreads neighbouring numbers far.
inline constexpr uint64_t odd_multiplier = 0x9E37'79B9'7F4A'7C15U;

// The hash so far with these bytes behind it. Eight bytes at once: byte by byte takes longer than what the
// table saves.
inline uint64_t hash_bytes(uint64_t hash, const char* bytes, size_t length)
{
    for (size_t done = 0; done < length; done += sizeof(uint64_t)) {
        uint64_t word = 0;
        memcpy(&word, bytes + done, std::min(sizeof(word), length - done));
        hash = (std::rotl(hash, 23) ^ word) * odd_multiplier;
    }
    hash ^= hash >> 32;           // a product tells lower bits nothing of the last bytes
    return hash * odd_multiplier; // an empty text, too, leaves a trace
}

} // namespace ostrum
#endif
