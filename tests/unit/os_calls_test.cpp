#include <pthread.h>

#include <gtest/gtest.h>

#include "os/os_calls.h"

using namespace ostrum;

namespace {

// Joining one that has ended already waits for nothing, and so is no cancellation point anyway.
void* end_soon(void*)
{
    os::sleep_ns(50'000'000);
    return nullptr;
}

pthread_t running_thread()
{
    pthread_t thread{};
    os::create_thread(thread, end_soon, nullptr);
    return thread;
}

struct waiting_call {
    const char* name;
    void (*call)();
};
const waiting_call waiting_calls[] = {
    {"sleep_ns", [] { os::sleep_ns(1); }},
    {"join_thread", [] { os::join_thread(running_thread()); }},
    {"join_thread_within", [] { os::join_thread_within(running_thread(), 10'000'000'000); }},
};

void* cancel_itself_and_wait(void* argument)
{
    pthread_cancel(pthread_self());
    static_cast<const waiting_call*>(argument)->call();
    return argument; // not reached where the call is a cancellation point
}

} // namespace

TEST(OsCalls, WaitWithoutBeingCancellationPoints)
{
    for (const waiting_call& waiting : waiting_calls) {
        SCOPED_TRACE(waiting.name);
        pthread_t thread{};
        void* result = nullptr;
        pthread_create(&thread, nullptr, cancel_itself_and_wait, const_cast<waiting_call*>(&waiting));
        pthread_join(thread, &result);
        EXPECT_EQ(result, &waiting);
    }
}
