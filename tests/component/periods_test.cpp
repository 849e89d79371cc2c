// Aggregation periods, the timed flush, the flush inside an operation, and the idle wait.
#include "support/tracing_fixture.h"

#include <chrono>
#include <ctime>
#include <fcntl.h>
#include <sys/resource.h>
#include <thread>

#include <gmock/gmock.h>

#include "ostrum.h"
#include "perf_log/buckets/bucket_file.h"
#include "perf_log/flush/idle_select.h"
#include "perf_log/flush/inside_opcode_flush.h"
#include "perf_log/flush/timed_flush.h"

using namespace ostrum;
using testing::AllOf;
using testing::HasSubstr;

class Periods : public tracing_fixture {};

TEST_F(Periods, AreAlignedToTheClock)
{
    struct {
        int32_t length;
        period_unit unit;
        const char* now;
        const char* start;
        const char* end;
    } const cases[] = {
        {15, period_unit::minutes, "2026-03-01 10:44:59", "20260301_103000", "20260301_104500"},
        {15, period_unit::minutes, "2026-03-01 10:45:00", "20260301_104500", "20260301_110000"},
        {1, period_unit::hours, "2026-12-31 23:30:10", "20261231_230000", "20270101_000000"},
        {8, period_unit::hours, "2026-02-28 16:00:00", "20260228_160000", "20260301_000000"},
        {25, period_unit::minutes, "2026-03-01 10:55:00", "20260301_105000", "20260301_111500"}};
    aggregation_period period;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.now);
        tm fields{};
        strptime(c.now, "%Y-%m-%d %H:%M:%S", &fields);
        fake_os::freeze_clock(timegm(&fields) * second + 700 * ms);
        get_current_aggregation_period(&period, c.length, c.unit, ostrum_now_tv());
        EXPECT_STREQ(period.start_text, c.start);
        EXPECT_STREQ(period.end_text, c.end);
        EXPECT_EQ(period.end_tv, period.end_s * second);
        EXPECT_EQ(period.end_s - period.start_s, c.length * (c.unit == period_unit::hours ? 3600 : 60));
    }
    fake_os::fail(fake_os::call::local_time, 1, EOVERFLOW);
    get_current_aggregation_period(&period, 1, period_unit::hours, 5);
    EXPECT_STREQ(period.start_text, "19700101_000000");
    EXPECT_STREQ(period.end_text, "19700101_000000");
    EXPECT_EQ(period.start_s + period.end_s + period.end_tv, 0);
}

TEST_F(Periods, TimeToTheEndIsGenerous)
{
    timeval left{};
    fake_os::freeze_clock(begin_s * second + 400 * ms);
    ASSERT_EQ(__ostrum_get_time_to_period_end(&context(), &left), &left);
    EXPECT_EQ(left.tv_sec, 15 * 60 + 1);
    EXPECT_EQ(left.tv_usec, 600'000);
    fake_os::freeze_clock((begin_s + int64_t{15} * 60) * second);
    __ostrum_get_time_to_period_end(&context(), &left);
    EXPECT_EQ(left.tv_sec + left.tv_usec, 0);
    EXPECT_EQ(__ostrum_get_time_to_period_end(nullptr, &left), nullptr);
    EXPECT_EQ(__ostrum_get_time_to_period_end(&context(), nullptr), nullptr);
    fake_os::fail(fake_os::call::wall_clock, 1, EINVAL);
    EXPECT_EQ(__ostrum_get_time_to_period_end(&context(), &left), nullptr);
}

// Contexts by key, visited from a thread that has none of its own.
class TimedFlush : public tracing_fixture {
protected:
    void SetUp() override
    {
        set_variable("time_on", "2");
        for (int32_t key = 0; key < 100; ++key) {
            contexts_.push_back(lip_list_add(nullptr, process_id(), key));
            log(*contexts_.back(), 3, op_phase::start);
            log(*contexts_.back(), 3, op_phase::end);
        }
    }
    void TearDown() override
    {
        for (log_context* c : contexts_) {
            release_loginfo(lip_list_del(c, 0, 0));
            unpin(c);
        }
    }
    static void log(log_context& c, int32_t opcode, op_phase phase)
    {
        op_event event{};
        event.opcode = opcode;
        event.phase = phase;
        write_log(&c, &event);
    }
    std::vector<log_context*> contexts_;
};

TEST_F(TimedFlush, WritesWhatIsDueAndAsksWhereTheContextIsBusy)
{
    timeout_handler_func("test");
    EXPECT_EQ(trace_text(), "") << "nothing is due yet";

    fake_os::advance_clock(600 * second);
    log(*contexts_[1], 5, op_phase::start); // inside an operation
    acquire_for_hook(contexts_[2]->lock);
    timeout_handler_func("test");
    release(contexts_[2]->lock);
    EXPECT_EQ(count_of(trace_text(), "VRT_OP_ELAPSED"), 98);
    EXPECT_TRUE(contexts_[1]->flush_requested);
    EXPECT_TRUE(contexts_[2]->flush_requested);
    EXPECT_FALSE(contexts_[3]->flush_requested);
    log(*contexts_[1], 5, op_phase::end);
    EXPECT_EQ(count_of(trace_text(), "VRT_OP_ELAPSED"), 99);
}

TEST_F(TimedFlush, ClosesThePeriodOfIdleContexts)
{
    fake_os::advance_clock(900 * second);
    settings_for_startup().status_check_tv = 3600 * second;
    contexts_[1]->next_status_check_tv = ostrum_now_tv() + second; // its own look at the period is not due
    log(*contexts_[1], 5, op_phase::start);
    timeout_handler_func("test");
    EXPECT_EQ(contexts_[0]->trace.file, nullptr);
    EXPECT_STREQ(contexts_[0]->trace.period.start_text, "20251115_133000");
    EXPECT_EQ(contexts_[0]->starts_since_file_close, 0);
    EXPECT_NE(contexts_[1]->trace.file, nullptr) << "inside an operation the new file is opened at once";
    EXPECT_EQ(count_of(trace_text(), "VRT_OP_ELAPSED"), 99);
}

class InsideFlush : public tracing_fixture {};

TEST_F(InsideFlush, SplitsRunningCallsAndCountsThemWhereTheyEnd)
{
    set_variable("time_on", "2");
    start({.opcode = 3});
    fake_os::advance_clock(10 * ms);
    start({.opcode = 7});
    fake_os::advance_clock(20 * ms);
    inside_opcode_flush(&context(), ostrum_now_tv());
    EXPECT_THAT(trace_text(), AllOf(HasSubstr("F,0.030000000,0,0,0.030000000,0.030000000,"),
                                    HasSubstr("F,0.020000000,0,0,0.020000000,0.020000000,")));
    EXPECT_EQ(context().trace.new_node_count, 2);

    fake_os::advance_clock(5 * ms);
    end({.opcode = 7});
    end({.opcode = 3});
    EXPECT_EQ(node(3)->main.total_tv, 5 * ms);
    EXPECT_EQ(node(3)->main.total_calls, 1);
    EXPECT_EQ(find_node(node(3)->sub_opcode_tree, 7)->main.total_tv, 5 * ms);
    run({.opcode = 3}, ms);
    EXPECT_EQ(node(3)->main.total_calls, 2) << "the next call starts without flushed parts";
}

TEST_F(InsideFlush, ACallThatIsSplitTwiceIsCountedWhole)
{
    set_variable("time_on", "3");
    read_opcode_buckets(dir_.write("buckets", "3 0.03 1\n").c_str());
    start({.opcode = 3});
    for (const int64_t part_tv : {10 * ms, 20 * ms}) {
        fake_os::advance_clock(part_tv);
        inside_opcode_flush(&context(), ostrum_now_tv());
    }
    fake_os::advance_clock(5 * ms);
    end({.opcode = 3});
    EXPECT_EQ(data_file_->image->counters[0].total_t, 35 * ms);
    EXPECT_EQ(node(3)->main.total_tv, 5 * ms) << "the trace has the parts one by one";
    const total_record* longest = node(3)->main.next->next;
    ASSERT_NE(longest, nullptr);
    EXPECT_EQ(longest->bs_tv, 30 * ms);
    EXPECT_EQ(longest->total_calls, 1) << "the bucket is that of the whole call";
    read_opcode_buckets(dir_.write("buckets", "").c_str());
}

TEST_F(InsideFlush, RefusesWithoutMemoryAndKeepsTheTree)
{
    set_variable("time_on", "2");
    start({.opcode = 3});
    fake_os::fail(fake_os::call::allocate, 1, ENOMEM);
    EXPECT_THAT(fake_os::captured_stderr([&] { inside_opcode_flush(&context(), ostrum_now_tv()); }),
                HasSubstr("inside_opocode_flush : out of memory creating new tree\n"));
    fake_os::advance_clock(ms);
    end({.opcode = 3});
    EXPECT_EQ(node(3)->main.total_tv, ms);
}

class IdleSelect : public testing::Test {
protected:
    void SetUp() override
    {
        fake_os::reset();
        ASSERT_EQ(pipe(ends_), 0);
        FD_ZERO(&set_);
        FD_SET(ends_[0], &set_);
    }
    void TearDown() override
    {
        close(ends_[0]);
        close(ends_[1]);
        settings_for_startup() = settings{};
    }
    int ends_[2]{};
    fd_set set_{};
};

TEST_F(IdleSelect, BehavesAsSelectDoes)
{
    timeval short_wait{0, 20'000};
    EXPECT_EQ(__ostrum_select(ends_[0] + 1, &set_, nullptr, nullptr, &short_wait), 0);
    FD_SET(ends_[0], &set_);
    ASSERT_EQ(write(ends_[1], "x", 1), 1);
    EXPECT_EQ(__ostrum_select(ends_[0] + 1, &set_, nullptr, nullptr, nullptr), 1);
    EXPECT_TRUE(FD_ISSET(ends_[0], &set_));
    close(ends_[1]);
    fd_set bad = set_;
    FD_SET(ends_[1], &bad);
    EXPECT_EQ(__ostrum_select(ends_[1] + 1, &bad, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(errno, EBADF);
    ends_[1] = dup(ends_[0]);
}

TEST_F(IdleSelect, GoesOnAfterAnInterruption)
{
    fake_os::fail(fake_os::call::wait_for_descriptors, 1, EINTR);
    ASSERT_EQ(write(ends_[1], "x", 1), 1);
    timeval wait{5, 0};
    EXPECT_EQ(__ostrum_select(ends_[0] + 1, &set_, nullptr, nullptr, &wait), 1);
}

// An endless wait with automatic flushing wakes up each second inside, and only there.
TEST_F(IdleSelect, WaitsOnForAllSetsAfterEachSecondsFlush)
{
    settings_for_startup().auto_flush = flush_between_ops;
    std::vector<char> page(4096);
    fcntl(ends_[1], F_SETPIPE_SZ, page.size());
    fd_set writable = {};
    FD_SET(ends_[1], &writable);
    const auto select_until = [&](fd_set* read_set, fd_set* write_set, auto make_ready) {
        const int64_t before = fake_os::calls_made(fake_os::call::wait_for_descriptors);
        const auto begun = std::chrono::steady_clock::now();
        std::thread other([&] {
            for (int look = 0; look < 10'000; ++look) { // for the second wait inside
                if (fake_os::calls_made(fake_os::call::wait_for_descriptors) > before + 1) {
                    break;
                }
                usleep(1'000);
            }
            EXPECT_EQ(make_ready(), static_cast<ssize_t>(page.size()));
        });
        EXPECT_EQ(__ostrum_select(ends_[1] + 1, read_set, write_set, nullptr, nullptr), 1);
        other.join();
        EXPECT_GE(fake_os::calls_made(fake_os::call::wait_for_descriptors) - before, 2);
        EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::seconds(1));
    };
    select_until(&set_, nullptr, [&] { return write(ends_[1], page.data(), page.size()); });
    select_until(nullptr, &writable, [&] { return read(ends_[0], page.data(), page.size()); }); // it is full
}

TEST_F(IdleSelect, CopiesSetsOfMoreThanTheUsualDescriptors)
{
    constexpr int wide = 5000;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    const int high = dup2(ends_[0], wide - 1); // the kernel's table is as large from now on
    ASSERT_EQ(high, wide - 1);
    std::vector<fd_mask> large(wide / (8 * sizeof(fd_mask)) + 1, 0);
    auto* set = reinterpret_cast<fd_set*>(large.data());
    large[static_cast<size_t>(ends_[0]) / (8 * sizeof(fd_mask))] |=
        fd_mask{1} << (static_cast<size_t>(ends_[0]) % (8 * sizeof(fd_mask)));
    ASSERT_EQ(write(ends_[1], "x", 1), 1);
    fake_os::fail(fake_os::call::wait_for_descriptors, 1, EINTR);
    EXPECT_EQ(__ostrum_select(wide, set, nullptr, nullptr, nullptr), 1);
    fake_os::fail(fake_os::call::allocate, 1, ENOMEM);
    EXPECT_EQ(__ostrum_select(wide, set, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(errno, ENOMEM);
    close(high);
}
