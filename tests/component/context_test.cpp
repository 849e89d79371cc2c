// Contexts: who gets which, how they are shared, released and forgotten.
#include "support/tracing_fixture.h"

#include <thread>

#include <gmock/gmock.h>

#include "host_access/bindings.h"
#include "perf_log/operation/context_lookup.h"
#include "perf_log/operation/hooks.h"

using namespace ostrum;
using fake_os::captured_stderr;
using testing::AllOf;
using testing::HasSubstr;

class Contexts : public tracing_fixture {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(create_context_key(release_at_thread_exit), 0); }
    void SetUp() override
    {
        set_initialised_state(getpid());
        (void)decide_start_mode(start_mode::full);
        set_variable("time_on", "2");
    }
    void TearDown() override
    {
        if (log_context* own = thread_slot()) {
            set_thread_slot(nullptr);
            unpin(own);
        }
        while (log_context* c = unlink_first()) {
            release_loginfo(c);
        }
    }
    static int64_t start_op(const context_name* name, uint32_t opcode)
    {
        return __ostrum_log_start_op(name, opcode, "op", 0, nullptr, "f.c", 1, "", 0, 0, nullptr);
    }
    int64_t end_op(const context_name* name, uint32_t opcode)
    {
        return __ostrum_log_end_op(name, opcode, "op", 0, nullptr, nullptr, 0, "f.c", 1, "", 0, 0,
                                   &no_error_);
    }
    qel_errbuf_t no_error_{};
};

TEST_F(Contexts, AreFoundByProcessAndKeyNeverByThread)
{
    const log_context* own = __ostrum_get_liptr(-1);
    ASSERT_NE(own, nullptr);
    const log_context* other = nullptr;
    std::thread([&] { other = __ostrum_get_liptr(-1); }).join();
    EXPECT_EQ(other, own) << "a thread with an empty slot shares the first listed context";
    EXPECT_TRUE(own->released) << "the first of them to end releases it";
    EXPECT_NE(__ostrum_get_liptr(5), own);
    EXPECT_EQ(__ostrum_get_liptr(5), __ostrum_get_liptr_by_key(getpid(), 5));
    EXPECT_EQ(__ostrum_get_liptr_by_key(getpid(), 5)->trace.tid, 0U);
    EXPECT_EQ(__ostrum_get_liptr_by_key(1, -1)->trace.pid, 1);
    EXPECT_EQ(thread_slot(), own) << "naming a context fills no slot";
    EXPECT_THAT(captured_stderr([] { EXPECT_EQ(__ostrum_get_liptr_by_key(1, -2), nullptr); }),
                testing::EndsWith("__ostrum_get_liptr_by_key : invalid key[-2] provided"));
    for (int32_t key = 0; key < 300; ++key) { // more than the table has places
        EXPECT_EQ(__ostrum_get_liptr(key)->trace.key, key);
    }
}

TEST_F(Contexts, AThreadCancelledInAServiceOfTheHostsGivesItsContextBack)
{
    const auto own_service = std::exchange(bound_host_services().get_correlation, []() -> const char* {
        pthread_testcancel();
        return "";
    });
    const context_name name{getpid(), 4};
    std::thread([&] {
        pthread_cancel(pthread_self());
        start_op(&name, 3);
        ADD_FAILURE() << "the thread went on";
    }).join();
    bound_host_services().get_correlation = own_service;
    const log_context* context = __ostrum_get_liptr_by_key(name.pid, name.key);
    EXPECT_FALSE(is_held(context->lock));
    EXPECT_EQ(context->open_hook_calls, 0);
}

TEST_F(Contexts, AHookComingUponAReleasedContextGetsAFreshOne)
{
    const context_name name{getpid(), 3};
    for (const context_name* which : {static_cast<const context_name*>(nullptr), &name}) {
        SCOPED_TRACE(which != nullptr);
        start_op(which, 3);
        end_op(which, 3);
        const int32_t key = which != nullptr ? 3 : -1;
        // Released by somebody else: the slot and the cache of this thread still name it.
        release_loginfo(lip_list_del(nullptr, getpid(), key));
        EXPECT_EQ(count_of(trace_text(), "VRT_OP_ELAPSED"), which != nullptr ? 2 : 1);
        start_op(which, 3);
        end_op(which, 3);
        EXPECT_FALSE(__ostrum_get_liptr(key)->released);
        EXPECT_EQ(__ostrum_get_liptr(key)->trace.new_node_count, 1);
    }
}

TEST_F(Contexts, ReleaseByKeyFlushesOnceAndReportsTheUnknown)
{
    const context_name name{getpid(), 3};
    start_op(&name, 3);
    end_op(&name, 3);
    start_op(nullptr, 5);
    const int64_t blocks = fake_os::blocks_in_use();
    __ostrum_release_liptr_by_key(getpid(), 3);
    EXPECT_LT(fake_os::blocks_in_use(), blocks);
    EXPECT_EQ(count_of(trace_text(), "S,1,0,3,"), 1);
    __ostrum_release_liptr_by_key(getpid(), -1);
    EXPECT_EQ(thread_slot(), nullptr);
    EXPECT_EQ(count_of(trace_text(), "S,1,0,5,"), 1)
        << "an operation in progress is written as far as it got";
    for (const int32_t key : {3, -1}) {
        EXPECT_THAT(captured_stderr([key] { __ostrum_release_liptr_by_key(getpid(), key); }),
                    HasSubstr("__ostrum_release_liptr : no loginfo structure found for key[" +
                              std::to_string(key) + "]\n"));
    }
}

TEST_F(Contexts, WithoutMemoryTheHookOnlyReturnsItsTimestamp)
{
    const context_name name{getpid(), 9};
    start_op(nullptr, 1); // the thread's own context is there to fall back to
    int nth = 0;
    for (const char* step :
         {"init_log_info : out of memory\n", "]/key[9] - failed creating aggregation tree\n",
          "]/key[9] - failed creating single aggregation tree\n", ""}) {
        SCOPED_TRACE(step);
        const int64_t blocks = fake_os::blocks_in_use();
        fake_os::fail(fake_os::call::allocate, ++nth, ENOMEM);
        errno = 77;
        EXPECT_THAT(
            captured_stderr([&] { EXPECT_EQ(start_op(&name, 3), ostrum_now_tv()); }),
            AllOf(HasSubstr(step), HasSubstr("lip_list_add : out of memory adding loginfo for pid/key[")));
        EXPECT_EQ(errno, 77);
        EXPECT_EQ(lip_list_del(nullptr, getpid(), 9), nullptr);
        end_op(nullptr, 3);
        EXPECT_LE(fake_os::blocks_in_use(), blocks + 4) << "only the fallback's own nodes";
    }
}

TEST_F(Contexts, HooksInsideHooksAndBeforeOrAfterServiceReturnTheirTimestampOnly)
{
    {
        const library_scope inside;
        EXPECT_EQ(start_op(nullptr, 3), ostrum_now_tv());
        EXPECT_EQ(thread_slot(), nullptr);
    }
    set_initialised_state(-1);
    EXPECT_EQ(start_op(nullptr, 3), ostrum_now_tv());
    EXPECT_EQ(thread_slot(), nullptr);
}

TEST_F(Contexts, EndOfAnInnermostOperationTakesItsDetailsFromTheStart)
{
    start_op(nullptr, 3);
    __ostrum_log_start_fn(nullptr, 0, "fn", 0, "caller", "sql.c", 9, "", 0, 0);
    fake_os::advance_clock(ms);
    EXPECT_EQ(captured_stderr([] {
                  __ostrum_log_end_default(nullptr, 1, 5, 2, 10);
                  __ostrum_log_end_default(nullptr, 0, 0, 0, 0);
              }),
              "");
    const log_context& own = *__ostrum_get_liptr(-1);
    EXPECT_EQ(own.depth, -1);
    EXPECT_EQ(own.open_hook_calls, 0);
    const agg_node* outer = find_node(own.trace.tree, 3);
    ASSERT_NE(outer, nullptr);
    EXPECT_EQ(outer->main.total_calls, 1);
    const agg_node* fn = find_node(outer->sub_opcode_tree, 0);
    ASSERT_NE(fn, nullptr);
    EXPECT_STREQ(fn->program, "caller");
    EXPECT_EQ(fn->main.total_errors, 1);
    EXPECT_EQ(fn->main.cm_cache_calls, 1);

    start_op(nullptr, 3);
    EXPECT_EQ(captured_stderr([] {
                  __ostrum_log_end_op(nullptr, 3, "op", 0, nullptr, nullptr, 0, "f.c", 1, "", 0, 0, nullptr);
              }),
              "\n*** Error buffer not initialized ***\n");
    __ostrum_log_end_default(nullptr, 0, 0, 0, 0); // nothing is open: still balanced
    EXPECT_EQ(own.depth, -1);
}

TEST_F(Contexts, ALookUpByKeyNeverGivesOutAReleasedContext)
{
    const log_context* first = __ostrum_get_liptr_by_key(getpid(), 9);
    ASSERT_NE(first, nullptr);
    std::thread([] { __ostrum_release_liptr_by_key(getpid(), 9); }).join();
    const log_context* again = __ostrum_get_liptr_by_key(getpid(), 9);
    ASSERT_NE(again, nullptr);
    EXPECT_FALSE(again->released);
    __ostrum_release_liptr_by_key(getpid(), 9);
    const library_scope inside;
    EXPECT_EQ(__ostrum_get_liptr_by_key(getpid(), 9), nullptr) << "in the middle of a hook";
}
