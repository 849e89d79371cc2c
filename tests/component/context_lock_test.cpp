// The lock that leans towards its owner: exclusion between owner, other hooks and visitors, with and without
// the system's barrier.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "perf_log/context/context_lock.h"
#include "support/fake_os.h"

using namespace ostrum;

namespace {

constexpr int64_t ms = 1'000'000;

class ContextLock : public testing::TestWithParam<bool> { // whether the system has the barrier
protected:
    ContextLock()
    {
        fake_os::reset();
        if (!GetParam()) {
            fake_os::fail(fake_os::call::barrier, 1, ENOSYS, true);
        }
        prepare_owned_locks();
        own_lock(lock_);
    }
    ~ContextLock() override { fake_os::reset(); }

    template <typename Body>
    void in_other_thread(Body body)
    {
        std::thread(body).join();
    }

    context_lock lock_{};
};

} // namespace

TEST_P(ContextLock, ExcludesOwnerOtherHooksAndVisitors)
{
    constexpr int turns = 20'000;
    int64_t counted = 0; // not atomic: the lock is what keeps it right
    std::atomic<int64_t> visits{0};
    std::vector<std::thread> others;
    others.emplace_back([&] {
        for (int i = 0; i < turns / 20; ++i) {
            if (i % 2 == 0 ? try_acquire(lock_) : acquire_within(lock_, 100 * ms)) {
                ++counted;
                ++visits;
                release(lock_);
            }
        }
    });
    const auto use_as_hook = [&] {
        for (int i = 0; i < turns; ++i) {
            acquire_for_hook(lock_);
            ++counted;
            release(lock_);
        }
    };
    use_as_hook(); // the owner, while a visitor comes by
    others.emplace_back(use_as_hook);
    use_as_hook(); // and with another thread's hooks, from which on nobody owns it
    for (std::thread& thread : others) {
        thread.join();
    }
    EXPECT_EQ(counted, 3 * turns + visits);
    EXPECT_FALSE(is_held(lock_));
    EXPECT_FALSE(is_own(lock_));
}

TEST_P(ContextLock, AVisitorGivesUpWhereAHookIsInside)
{
    acquire_for_hook(lock_);
    EXPECT_TRUE(is_held(lock_));
    EXPECT_FALSE(try_acquire(lock_)) << "the thread that holds it itself";
    in_other_thread([this] {
        EXPECT_FALSE(try_acquire(lock_));
        EXPECT_FALSE(acquire_within(lock_, 2 * ms));
    });
    release(lock_);
    in_other_thread([this] {
        ASSERT_TRUE(try_acquire(lock_)) << "neither attempt has left anything behind";
        release(lock_);
    });
    acquire_for_hook(lock_);
    release(lock_);
    EXPECT_FALSE(is_held(lock_));
}

TEST_P(ContextLock, TheOwnerWaitsForAVisitorAndGoesOnAsOwner)
{
    std::atomic<int> step{0};
    std::thread visitor([&] {
        ASSERT_TRUE(acquire_within(lock_, no_limit_tv));
        step = 1;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        step = 2;
        release(lock_);
    });
    while (step == 0) {
        std::this_thread::yield();
    }
    acquire_for_hook(lock_);
    EXPECT_EQ(step, 2);
    release(lock_);
    visitor.join();
#ifdef __SANITIZE_THREAD__
    EXPECT_FALSE(is_own(lock_)) << "the sanitizer would not understand";
#else
    EXPECT_EQ(is_own(lock_), GetParam());
#endif
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutBarrier, ContextLock, testing::Bool());
