#ifndef OSTRUM_OS_NO_CANCELLATION_H
#define OSTRUM_OS_NO_CANCELLATION_H
#include <pthread.h>

namespace ostrum::os {

// Puts a cancellation of this thread off for one scope: a thread that ended in the middle of the library
// would leave its locks held. The host's cancellation points outside find it.
class no_cancellation {
public:
    no_cancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state_before_); }
    ~no_cancellation() { pthread_setcancelstate(state_before_, nullptr); }
    no_cancellation(const no_cancellation&) = delete;
    no_cancellation& operator=(const no_cancellation&) = delete;

private:
    int state_before_ = PTHREAD_CANCEL_ENABLE;
};

} // namespace ostrum::os
#endif
