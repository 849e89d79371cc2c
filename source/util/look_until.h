#ifndef OSTRUM_UTIL_LOOK_UNTIL_H
#define OSTRUM_UTIL_LOOK_UNTIL_H
#include <cstdint>

#include "os/os_calls.h"

namespace ostrum {

// Looks whether another thread or process has got on, with a pause between two looks, so many times at
// most. The result of the last look.
template <typename Done>
bool look_until(int32_t looks, int64_t pause_tv, Done done)
{
    for (int32_t look = 1; !done(); ++look) {
        if (look == looks) {
            return false;
        }
        os::sleep_ns(pause_tv);
    }
    return true;
}

} // namespace ostrum
#endif
