#ifndef QEL_PUBLISHED_H
#define QEL_PUBLISHED_H
#include <atomic>
#include <memory>
#include <utility>

namespace qel {

// A table that is replaced as a whole and read without a lock, also in a forked child and while the
// process ends. Replaced tables are kept: readers may still hold pointers into them.
template <typename T>
class published {
public:
    constexpr published() = default;
    published(const published&) = delete;
    published& operator=(const published&) = delete;
    ~published() = default; // trivial on purpose: exit handlers of others still read

    // Null before the first replace.
    [[nodiscard]] const T* get() const
    {
        const version* current = current_.load(std::memory_order_acquire);
        return current != nullptr ? &current->table : nullptr;
    }

    void replace(T table)
    {
        auto next = std::make_unique<version>(version{std::move(table), current_.load()});
        while (!current_.compare_exchange_weak(next->previous, next.get(), std::memory_order_acq_rel)) {
        }
        static_cast<void>(next.release());
    }

private:
    struct version {
        T table;
        version* previous;
    };
    std::atomic<version*> current_{nullptr};
};

} // namespace qel
#endif
