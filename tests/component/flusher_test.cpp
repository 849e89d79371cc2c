// The hand-over to the flusher thread, and what that thread makes of it.
#include "support/tracing_fixture.h"

#include <csignal>
#include <cstdlib>

#include <sys/wait.h>

#include <gmock/gmock.h>

#include "perf_log/flush/async_flusher.h"
#include "perf_log/flush/flush.h"
#include "perf_log/flush/timed_flush.h"
#include "process_state/signals.h"
#include "util/diagnostics.h"

using namespace ostrum;
using fake_os::captured_stderr;
using testing::HasSubstr;

class Flusher : public tracing_fixture {
protected:
    Flusher()
    {
        set_variable("time_on", "3");
        settings_for_startup().async_flushing = true;
    }
    ~Flusher() override
    {
        settings_for_startup().async_flushing = false;
        drop_context();
        drop_queue(record());
    }
    static flush_record& record() { return process_flush_record(); }

    // One operation in a period of its own, handed over.
    void hand_over(int32_t opcode)
    {
        run({.opcode = opcode}, 5 * ms);
        EXPECT_EQ(flush_aggregation_tree(&context()), 1);
    }
    // On this thread, and only until the queue is empty.
    static void drain()
    {
        record().terminate = 1;
        EXPECT_EQ(perf_async_flusher(&record()), nullptr);
        record().terminate = 0;
    }
};

TEST_F(Flusher, AHandOverMovesTheTreeAndLeavesTheContextAsAfterAFlush)
{
    run({.opcode = 3}, 5 * ms);
    bt_tree* const tree = context().trace.tree;
    const uint64_t generation = context().trace.tree_generation;
    fake_os::advance_clock(10 * second);
    EXPECT_EQ(flush_aggregation_tree(&context()), 1);
    EXPECT_EQ(record().trees->source.tree, tree);
    EXPECT_NE(context().trace.tree, tree);
    EXPECT_NE(context().trace.tree_generation, generation) << "remembered paths are void";
    EXPECT_EQ(context().trace.new_node_count, 0);
    EXPECT_EQ(context().trace.last_flush_s, begin_s + 10);
    EXPECT_EQ(context().trace.next_flush_tv, (begin_s + 610) * second);
    EXPECT_EQ(node(3), nullptr);
    EXPECT_EQ(trace_text(), "");

    EXPECT_EQ(flush_aggregation_tree(&context()), 0) << "a context without nodes is handed over too";
    EXPECT_EQ(record().tree_count, 2);
}

TEST_F(Flusher, WritesTheNewestFirstAndThenEnds)
{
    for (const int32_t opcode : {3, 5, 7}) {
        hand_over(opcode);
    }
    const int64_t blocks_before = fake_os::blocks_in_use();
    drain();
    EXPECT_THAT(trace_text(), testing::ContainsRegex("S,1,0,7,(.|\n)*S,1,0,5,(.|\n)*S,1,0,3,"));
    EXPECT_EQ(record().tree_count, 0);
    EXPECT_LT(fake_os::blocks_in_use(), blocks_before);
    drop_context();
    drain();
    EXPECT_EQ(count_of(trace_text(), "S,1,0,"), 3) << "nothing is written twice";
}

TEST_F(Flusher, WritesNothingInADamagedProcess)
{
    hand_over(3);
    const pid_t child = fork();
    if (child == 0) {
        atexit(drain);
        __ostrum_fatal_sig_handler(SIGTERM); // ends the process
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), EXIT_FAILURE);
    EXPECT_EQ(trace_text(), "");
}

TEST_F(Flusher, TheFileOfAPeriodStaysOpenUntilItsTreesAreWritten)
{
    run({.opcode = 3}, 5 * ms);
    fake_os::advance_clock(900 * second);
    run({.opcode = 5}, 5 * ms); // another period: handed over, closed, opened anew
    EXPECT_EQ(record().tree_count, 1);
    drop_context();
    drain();
    ASSERT_EQ(trace_files().size(), 2U);
    for (const size_t period : {0U, 1U}) {
        const std::string text = temp_dir::read(trace_files()[period]);
        EXPECT_EQ(count_of(text, "S,1,0,"), 1);
        EXPECT_EQ(count_of(text, period == 0 ? "S,1,0,3," : "S,1,0,5,"), 1);
    }
}

TEST_F(Flusher, ALongQueueKeepsNoFilesOpen)
{
    for (int i = 0; i < 20; ++i) {
        hand_over(3);
    }
    EXPECT_TRUE(record().trees->reopens_file);
    EXPECT_EQ(context().trace.file->holders, 1 + 8);
    drop_context();
    drain();
    EXPECT_EQ(count_of(trace_text(), "S,1,0,3,"), 20);
    EXPECT_EQ(trace_files().size(), 1U);
}

TEST_F(Flusher, WhatCannotBeHandedOverIsReported)
{
    run({.opcode = 3}, 5 * ms);
    fake_os::fail(fake_os::call::allocate, 1, ENOMEM);
    EXPECT_THAT(captured_stderr([&] { EXPECT_EQ(flush_aggregation_tree(&context()), -1); }),
                HasSubstr("perf_async_flush_add_lip : out of memory\n"));
    EXPECT_NE(node(3), nullptr) << "nothing has changed";

    fake_os::fail(fake_os::call::allocate, 2, ENOMEM);
    EXPECT_THAT(captured_stderr([&] { EXPECT_EQ(flush_aggregation_tree(&context()), -1); }),
                HasSubstr("perf_async_flush_add_lip : out of memory creating new tree\n"));
    EXPECT_EQ(context().trace.tree, nullptr);
    EXPECT_EQ(record().tree_count, 0);
    captured_stderr([&] { run({.opcode = 3}, ms); }); // goes on, unrecorded
    EXPECT_EQ(flush_aggregation_tree(&context()), 0) << "and the next hand-over gives it a tree again";
    hand_over(5);

    fake_os::fail(fake_os::call::create_thread, 1, EAGAIN);
    flush_record none{};
    EXPECT_THAT(captured_stderr([&] { EXPECT_EQ(perf_initialise_flushing_thread(&none), EAGAIN); }),
                HasSubstr("perf_initialise_flushing_thread : pthread_create failed - errno[11]("));
    EXPECT_EQ(none.thread, 0U);
    finish_flushing_thread(none); // nobody to wait for
}

TEST_F(Flusher, AThreadOfItsOwnDrainsTheQueueAndTakesNoneOfTheHostsSignals)
{
    ASSERT_EQ(perf_initialise_flushing_thread(&record()), 0);
    for (int i = 0; i < 50; ++i) {
        hand_over(3);
    }
    context();
    drop_context(); // hands the last one over
    finish_flushing_thread(record());
    EXPECT_EQ(count_of(trace_text(), "S,1,0,3,"), 50);
    EXPECT_EQ(record().thread, 0U);

    sigset_t before;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    drain();
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, &before, &after);
    for (const int signal : {SIGALRM, SIGTERM, SIGINT, SIGUSR1, SIGUSR2, SIGCHLD}) {
        EXPECT_EQ(sigismember(&after, signal), 1) << signal;
    }
    EXPECT_EQ(sigismember(&after, SIGSEGV) + sigismember(&after, SIGHUP), 0);
}
