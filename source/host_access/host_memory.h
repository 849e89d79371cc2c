#ifndef OSTRUM_HOST_ACCESS_HOST_MEMORY_H
#define OSTRUM_HOST_ACCESS_HOST_MEMORY_H
#include <memory>

#include "host_abi/host_services.h"
#include "os/os_calls.h"

namespace ostrum {

// Frees what the host allocated; null allowed.
inline void release_host_memory(void* block)
{
    if (qel_free != nullptr) {
        qel_free(block);
    } else {
        os::release(block);
    }
}

struct release_host_block {
    void operator()(void* block) const { release_host_memory(block); }
};

// What the host allocated and this library must give back.
template <typename T>
using host_ptr = std::unique_ptr<T, release_host_block>;

} // namespace ostrum
#endif
