// What one call leads to: the stack, what is aggregated, counted and flushed.
#include "support/tracing_fixture.h"

#include <tuple>

#include <gmock/gmock.h>

#include "data_file/counters.h"
#include "data_file/errors.h"
#include "perf_log/operation/hooks.h"
#include "perf_log/operation/timeout_nesting.h"

using namespace ostrum;
using testing::HasSubstr;

class WriteLog : public tracing_fixture {};

TEST_F(WriteLog, TimeModeDecidesWhatIsRecorded)
{
    struct {
        const char* time_on;
        bool outer, inner, file;
        uint64_t counters;
        const char* fname; // of the live counter
        uint64_t flags;
    } const cases[] = {{"0", false, false, false, 0, "", 0}, {"-1", false, false, false, 0, "", 0},
                       {"1", true, false, false, 1, "", 0},  {"2", true, true, true, 0, "", 0},
                       {"3", true, true, true, 1, "", 0},    {"5", true, false, false, 2, "host.c", 0},
                       {"9", true, false, false, 2, "", 1},  {"19", true, true, true, 2, "", 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.time_on);
        drop_context();
        set_variable("time_on", c.time_on);
        data_file_->image->counter_count = 0;
        start({.opcode = 3, .flags = 1, .line = 1});
        run({.opcode = 7}, 1 * ms); // counted only with the bit for two levels
        EXPECT_EQ(context().trace.file != nullptr, c.file);
        end({.opcode = 3, .flags = 1, .line = 1});
        ASSERT_EQ(node(3) != nullptr, c.outer);
        EXPECT_EQ(c.outer && find_node(node(3)->sub_opcode_tree, 7) != nullptr, c.inner);
        run({.opcode = 3, .flags = 2, .line = 2}, 1 * ms);
        const data_file_image& image = *data_file_->image;
        ASSERT_EQ(image.counter_count, c.counters);
        if (c.counters > 0) {
            const counter_entry& of_3 = image.counters[image.counters[0].opcode == 3 ? 0 : 1];
            EXPECT_STREQ(of_3.fname, c.fname);
            EXPECT_EQ(of_3.opflags, c.flags);
            EXPECT_STREQ(of_3.program, "tester");
        }
    }
}

TEST_F(WriteLog, FiguresOfACallReachItsNodeAndItsCounter)
{
    set_variable("time_on", "3");
    run({.opcode = 3, .records = 4}, 20 * ms);
    run({.opcode = 3, .end_flags = 0x4, .records = 2}, 10 * ms);
    run({.opcode = 3, .errnum = 9, .records = 0}, 1 * ms);
    const total_record& t = node(3)->main;
    EXPECT_EQ((std::vector{t.total_calls, t.total_tv, t.min_tv, t.max_tv, t.total_recs, t.total_errors,
                           t.cm_cache_calls, t.cm_cache_tv}),
              (std::vector<int64_t>{3, 31 * ms, 10 * ms, 20 * ms, 6, 1, 1, 10 * ms}));
    const counter_entry& c = data_file_->image->counters[0];
    EXPECT_EQ((std::vector{c.calls, c.total_t, c.recs, c.errors}), (std::vector<uint64_t>{3, 31 * ms, 6, 1}));
}

TEST_F(WriteLog, ErrorCountersKeepTheAttributesThatTheLevelNames)
{
    const std::pair<int32_t, error_entry> cases[] = {{error_by_dbno, {.dbno = 1}},
                                                     {error_by_program, {.program = "tester"}},
                                                     {error_by_opcode, {.opcode = 3, .opname = "op_three"}},
                                                     {error_by_class, {.err_class = 2}},
                                                     {error_by_location, {.location = 10}},
                                                     {error_by_errnum | 0x40, {.errnum = 9}}};
    const auto attributes = [](const error_entry& e) {
        return std::tuple(e.dbno, e.opcode, std::string(e.opname), std::string(e.program), e.err_class,
                          e.location, e.errnum);
    };
    set_variable("time_on", "3");
    for (const auto& [level, expected] : cases) {
        SCOPED_TRACE(level);
        data_file_->image->error_count = 0;
        settings_for_startup().error_counter_level = level;
        run({.opcode = 3, .name = "op_three", .errnum = 9}, ms);
        run({.opcode = 3, .name = "op_three", .errnum = 9}, ms);
        ASSERT_EQ(data_file_->image->error_count, 1U);
        EXPECT_EQ(attributes(data_file_->image->errors[0]), attributes(expected));
        EXPECT_EQ(data_file_->image->errors[0].errcnt, 2U);
    }
}

TEST_F(WriteLog, TwoErrorNumbersCountAtTheOutermostLevelOnly)
{
    set_variable("time_on", "3");
    for (const uint32_t errnum : {37U, 120U, 38U}) {
        SCOPED_TRACE(errnum);
        start({.opcode = 3});
        run({.opcode = 7, .errnum = errnum}, ms);
        end({.opcode = 3, .errnum = errnum});
    }
    EXPECT_EQ(node(3)->main.total_errors, 3);
    EXPECT_EQ(find_node(node(3)->sub_opcode_tree, 7)->main.total_errors, 1);
}

TEST_F(WriteLog, StackStaysBalancedBeyondTheFramesAndBelowZero)
{
    set_variable("time_on", "3");
    for (int i = 0; i < 150; ++i) {
        start({.opcode = i + 1});
    }
    EXPECT_EQ(context().depth, 149);
    EXPECT_EQ(context().trace.new_node_count, 100);
    for (int i = 149; i >= 0; --i) {
        end({.opcode = i + 1});
    }
    EXPECT_EQ(context().depth, -1);
    end({.opcode = 3}); // without a start
    EXPECT_EQ(context().depth, -1);
    EXPECT_EQ(node(1)->main.total_calls, 1);
    EXPECT_EQ(timeout_nesting_word() & nesting_count_mask, 0U);
    run({.opcode = 3}, ms);
    EXPECT_EQ(node(3)->main.total_calls, 1);
}

TEST_F(WriteLog, SamePathFromDifferentCallersAndPlacesIsToldApart)
{
    set_variable("time_on", "3");
    for (const int32_t outer : {1, 2}) {
        start({.opcode = outer});
        run({.opcode = 7}, ms);
        for (const int32_t line : {5, 6, 6}) {
            run({.opcode = 0, .name = "fn", .line = line}, ms);
        }
        end({.opcode = outer});
    }
    EXPECT_EQ(bt_count(context().trace.tree), 2U);
    EXPECT_EQ(bt_count(node(1)->sub_opcode_tree), 3U);
    EXPECT_EQ(find_node(node(2)->sub_opcode_tree, 7)->main.total_calls, 1);
    EXPECT_EQ(context().trace.new_node_count, 8);
    // A name longer than a field keeps never equals its cut copy.
    const std::string name(128, 'n');
    run({.opcode = 0, .name = name.c_str()}, ms);
    run({.opcode = 0, .name = name.c_str()}, ms);
    EXPECT_EQ(bt_count(context().trace.tree), 4U);
}

TEST_F(WriteLog, MaximumOfLinesFlushesAndReopens)
{
    settings_for_startup().max_log_size = 10;
    set_variable("time_on", "3");
    for (int i = 0; i < 9; ++i) {
        run({.opcode = 3}, ms);
    }
    EXPECT_EQ(trace_text(), "");
    run({.opcode = 3}, ms); // the tenth start writes the nine before it
    EXPECT_THAT(trace_text(), HasSubstr("F,0.009000000,9,9,"));
    EXPECT_EQ(node(3)->main.total_calls, 1);
    EXPECT_EQ(context().starts_since_file_close, 0);
    EXPECT_NE(context().trace.file, nullptr);
}

TEST_F(WriteLog, FlushComesWhenItIsDueAndOnlyBetweenOperations)
{
    set_variable("time_on", "3");
    start({.opcode = 3});
    fake_os::advance_clock(599 * second);
    run({.opcode = 7}, second); // due, but an operation is in progress
    EXPECT_EQ(trace_text(), "");
    end({.opcode = 3});
    EXPECT_EQ(count_of(trace_text(), "S,"), 3);
    EXPECT_EQ(bt_search(context().trace.tree, nullptr), nullptr);
    EXPECT_EQ(context().trace.new_node_count, 0);

    run({.opcode = 3}, ms);
    context().flush_requested = true;
    run({.opcode = 3}, ms);
    EXPECT_EQ(count_of(trace_text(), "S,"), 5);
    EXPECT_FALSE(context().flush_requested);
}

TEST_F(WriteLog, VariablesAreReadAgainAfterTheInterval)
{
    settings_for_startup().status_check_tv = second;
    set_variable("time_on", "0");
    run({.opcode = 3}, ms);
    set_variable("time_on", "3");
    set_variable("flist_on", "1");
    set_variable("trace_opcodes", "3x,7");
    run({.opcode = 3}, ms);
    EXPECT_EQ(node(3), nullptr);
    fake_os::advance_clock(second);
    run({.opcode = 3}, ms);
    EXPECT_NE(node(3), nullptr);
    EXPECT_TRUE(context().skip_flist_trace);
    run({.opcode = 7}, ms);
    EXPECT_FALSE(context().skip_flist_trace);
}

TEST_F(WriteLog, AnEndThatNamesNothingIsThatOfTheInnermostCall)
{
    set_variable("time_on", "3");
    start({.opcode = 7, .flags = 0x100, .line = 11});
    start({.opcode = 3, .name = "inner", .flags = 0x200, .file = "inner.c", .line = 12});
    const op_event event = end_of_innermost(context());
    EXPECT_EQ(std::tuple(event.opcode, event.opflags, event.line, event.db), std::tuple(3, 0x200U, 12, 1));
    EXPECT_STREQ(event.opname, "inner");
    EXPECT_STREQ(event.program, "tester");
    EXPECT_STREQ(event.file, "inner.c");
    EXPECT_STREQ(event.obj_type, "/thing");
}
