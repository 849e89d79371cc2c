#ifndef OSTRUM_OS_SIGNAL_SET_H
#define OSTRUM_OS_SIGNAL_SET_H
#include <initializer_list>

#include "os/os_calls.h"

namespace ostrum::os {

inline sigset_t signal_set(std::initializer_list<int> signal_numbers)
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal_number : signal_numbers) {
        sigaddset(&set, signal_number);
    }
    return set;
}

// Holds these signals back from this thread while it lives.
class signals_blocked {
public:
    explicit signals_blocked(std::initializer_list<int> signal_numbers)
    {
        const sigset_t set = signal_set(signal_numbers);
        signal_mask(SIG_BLOCK, &set, &mask_before_);
    }
    ~signals_blocked() { signal_mask(SIG_SETMASK, &mask_before_, nullptr); }
    signals_blocked(const signals_blocked&) = delete;
    signals_blocked& operator=(const signals_blocked&) = delete;

private:
    sigset_t mask_before_{};
};

} // namespace ostrum::os
#endif
