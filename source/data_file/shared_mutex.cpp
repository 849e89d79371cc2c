#include "data_file/shared_mutex.h"

namespace ostrum {

constinit shared_mutex_kinds own_mutex_kinds;

namespace {

void look_up_kinds()
{
    pthread_mutex_t sample;
    pthread_mutex_init(&sample, shared_mutex_attributes().get());
    own_mutex_kinds.fresh.store(kind_of(sample), std::memory_order_relaxed);
    pthread_mutex_lock(&sample);
    pthread_mutex_unlock(&sample);
    own_mutex_kinds.used.store(kind_of(sample), std::memory_order_relaxed);
    pthread_mutex_destroy(&sample);
}

} // namespace

bool is_kind_of_ours_after_look(int64_t kind)
{
    if (own_mutex_kinds.used.load(std::memory_order_relaxed) == shared_mutex_kinds::unknown) {
        look_up_kinds();
    }
    return is_kind_of_ours(kind);
}

} // namespace ostrum
