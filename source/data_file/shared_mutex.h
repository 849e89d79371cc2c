#ifndef OSTRUM_DATA_FILE_SHARED_MUTEX_H
#define OSTRUM_DATA_FILE_SHARED_MUTEX_H
// Mutexes that processes share through the data file, and whether bytes in it still are one.
#include <atomic>
#include <cstdint>

#include <pthread.h>

namespace ostrum {

// Default type, shared between processes, and nothing else: not robust (kept: part of the file format).
class shared_mutex_attributes {
public:
    shared_mutex_attributes()
    {
        pthread_mutexattr_init(&attributes_);
        pthread_mutexattr_setpshared(&attributes_, PTHREAD_PROCESS_SHARED);
    }
    ~shared_mutex_attributes() { pthread_mutexattr_destroy(&attributes_); }
    shared_mutex_attributes(const shared_mutex_attributes&) = delete;
    shared_mutex_attributes& operator=(const shared_mutex_attributes&) = delete;

    [[nodiscard]] const pthread_mutexattr_t* get() const { return &attributes_; }

private:
    pthread_mutexattr_t attributes_{};
};

// The kinds that the library's own mutexes have in this process: the first use may add a mark to a fresh
// one, where lock elision is switched on. Threads that look for the first time at once find the same. Not
// local statics: their guard could be held, for ever, in a child that was forked meanwhile.
// Owned by shared_mutex.cpp. Here so that a look costs the hooks two loads.
struct shared_mutex_kinds {
    static constexpr int64_t unknown = INT64_MIN;
    std::atomic<int64_t> fresh{unknown};
    std::atomic<int64_t> used{unknown};
};
extern constinit shared_mutex_kinds own_mutex_kinds;

[[gnu::always_inline]] inline bool is_kind_of_ours(int64_t kind)
{
    return kind == own_mutex_kinds.fresh.load(std::memory_order_relaxed) ||
           kind == own_mutex_kinds.used.load(std::memory_order_relaxed);
}
[[gnu::noinline]] bool is_kind_of_ours_after_look(int64_t kind);

// The word of a mutex that names its kind.
inline int kind_of(const pthread_mutex_t& mutex)
{
    return __atomic_load_n(&mutex.__data.__kind, __ATOMIC_RELAXED);
}

// Any other kind has rules that foreign bytes can turn into a crash of the host or a wait without end.
[[gnu::always_inline]] inline bool usable(const pthread_mutex_t& mutex)
{
    const int kind = kind_of(mutex);
    return is_kind_of_ours(kind) || is_kind_of_ours_after_look(kind);
}

} // namespace ostrum
#endif
