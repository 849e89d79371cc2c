#include "data_file/stuck_locks.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>

namespace ostrum {

namespace {

constexpr size_t capacity = 64;
std::array<std::atomic<const lock_slot*>, capacity> stuck_slots{};
std::atomic<size_t> stuck_count{0}; // of the array's non-null elements; read on every lock

template <typename Matches>
void forget_where(Matches matches)
{
    for (auto& element : stuck_slots) {
        const lock_slot* slot = element.load(std::memory_order_relaxed);
        if (slot != nullptr && matches(slot) &&
            element.compare_exchange_strong(slot, nullptr, std::memory_order_relaxed)) {
            stuck_count.fetch_sub(1, std::memory_order_relaxed);
        }
    }
}

bool none_stuck()
{
    return stuck_count.load(std::memory_order_relaxed) == 0;
}

} // namespace

void remember_stuck(const lock_slot& slot)
{
    if (counts_as_stuck(slot)) {
        return;
    }
    for (auto& element : stuck_slots) {
        const lock_slot* expected = nullptr;
        if (element.compare_exchange_strong(expected, &slot, std::memory_order_relaxed)) {
            stuck_count.fetch_add(1, std::memory_order_relaxed);
            return;
        }
    }
}

bool counts_as_stuck(const lock_slot& slot)
{
    const size_t count = stuck_count.load(std::memory_order_relaxed);
    if (count == 0 || count >= capacity) {
        return count != 0;
    }
    return std::any_of(stuck_slots.begin(), stuck_slots.end(), [&slot](const auto& element) {
        return element.load(std::memory_order_relaxed) == &slot;
    });
}

void forget_stuck(const lock_slot& slot)
{
    if (!none_stuck()) {
        forget_where([&slot](const lock_slot* known) { return known == &slot; });
    }
}

void forget_stuck_within(const data_file_image* image)
{
    if (none_stuck()) {
        return;
    }
    const std::less<const void*> below;
    forget_where(
        [image, below](const lock_slot* known) { return !below(known, image) && below(known, image + 1); });
}

} // namespace ostrum
