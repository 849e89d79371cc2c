#ifndef OSTRUM_DATA_FILE_TABLE_ACCESS_H
#define OSTRUM_DATA_FILE_TABLE_ACCESS_H
// What the three tables of the data file share: how entries in use, fixed texts and totals are touched.
// The mapping is written by other processes, so nothing read from it is trusted: a count is held to its
// table, a text may lack its terminator.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <span>

#include "data_file/layout.h"
#include "util/text.h"

namespace ostrum {

template <typename Entry, size_t N>
std::span<Entry> used_entries(Entry (&table)[N], uint64_t& count_word)
{
    const uint64_t count = std::atomic_ref(count_word).load(std::memory_order_acquire);
    return {table, static_cast<size_t>(std::min<uint64_t>(count, N))};
}

// Comes last in an insert: a reader that takes no lock sees whole entries only. The count never falls,
// even if a process whose table lock was taken for stuck inserts at the same time.
inline void publish_count(uint64_t& count_word, size_t count)
{
    const std::atomic_ref word(count_word);
    uint64_t current = word.load(std::memory_order_relaxed);
    while (current < count && !word.compare_exchange_weak(current, count, std::memory_order_release,
                                                          std::memory_order_relaxed)) {
    }
}

// Totals change under a lock. The atomic store keeps a reader without one from seeing half a word; it
// costs no more than a plain one.
inline void store_total(uint64_t& word, uint64_t value)
{
    std::atomic_ref(word).store(value, std::memory_order_relaxed);
}

inline void add_to_total(uint64_t& word, int64_t amount)
{
    store_total(word, std::atomic_ref(word).load(std::memory_order_relaxed) + static_cast<uint64_t>(amount));
}

// Whether storing `text` into the field would give what it holds: longer texts compare by their stored part.
template <size_t N>
bool holds_text(const char (&field)[N], const char* text)
{
    return strncmp(field, text, N - 1) == 0;
}

template <size_t N>
void store_text(char (&field)[N], const char* text)
{
    memset(field, 0, N); // nothing of an earlier entry stays behind the terminator
    copy_text(field, N, text);
}

template <size_t N>
void terminate_text(char (&field)[N])
{
    field[N - 1] = '\0';
}

inline void report_count(int32_t* out, size_t count)
{
    if (out != nullptr) {
        *out = static_cast<int32_t>(count);
    }
}

} // namespace ostrum
#endif
