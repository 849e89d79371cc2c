// What one call leads to: the stack, what is aggregated, counted and flushed.
#include "support/tracing_fixture.h"

#include "data_file/counters.h"
#include "data_file/errors.h"
#include "perf_log/operation/timeout_nesting.h"

using namespace ostrum;

class WriteLog : public tracing_fixture {};

TEST_F(WriteLog, TimeModeDecidesWhichLevelsAreAggregated)
{
    struct {
        const char* time_on;
        bool outer;
        bool inner;
        bool counter;
        bool file;
    } const cases[] = {{"0", false, false, false, false},
                       {"-1", false, false, false, false},
                       {"1", true, false, true, false},
                       {"2", true, true, false, true},
                       {"3", true, true, true, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.time_on);
        drop_context();
        set_variable("time_on", c.time_on);
        data_file_->image->counter_count = 0;
        start({.opcode = 3});
        run({.opcode = 7}, 5 * ms);
        EXPECT_EQ(context().trace.file != nullptr, c.file);
        end({.opcode = 3});
        ASSERT_EQ(node(3) != nullptr, c.outer);
        EXPECT_EQ(c.outer && find_node(node(3)->sub_opcode_tree, 7) != nullptr, c.inner);
        EXPECT_EQ(data_file_->image->counter_count, c.counter ? 1U : 0U);
        for (const std::string& file : trace_files()) {
            unlink(file.c_str());
        }
    }
}

TEST_F(WriteLog, FiguresOfACallReachItsNode)
{
    set_variable("time_on", "3");
    run({.opcode = 3, .records = 4}, 20 * ms);
    run({.opcode = 3, .end_flags = 0x4, .records = 2}, 10 * ms);
    run({.opcode = 3, .errnum = 9, .records = 0}, 1 * ms);
    const total_record& totals = node(3)->main;
    EXPECT_EQ(totals.total_calls, 3);
    EXPECT_EQ(totals.total_tv, 31 * ms);
    EXPECT_EQ(totals.min_tv, 10 * ms) << "an error never lowers the minimum";
    EXPECT_EQ(totals.max_tv, 20 * ms);
    EXPECT_EQ(totals.total_recs, 6);
    EXPECT_EQ(totals.total_errors, 1);
    EXPECT_EQ(totals.cm_cache_calls, 1);
    EXPECT_EQ(totals.cm_cache_tv, 10 * ms);
    const counter_entry& counter = data_file_->image->counters[0];
    EXPECT_EQ(counter.calls, 3U);
    EXPECT_EQ(counter.total_t, static_cast<uint64_t>(31 * ms));
    EXPECT_EQ(counter.recs, 6U);
    EXPECT_EQ(counter.errors, 1U);
}

TEST_F(WriteLog, IdentityOfLiveCountersFollowsTheTimeMode)
{
    struct {
        const char* time_on;
        uint64_t counters;
        const char* fname;
        uint64_t flags;
    } const cases[] = {{"1", 1, "", 0}, {"5", 2, "host.c", 0}, {"9", 2, "", 1}, {"19", 2, "", 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.time_on);
        drop_context();
        set_variable("time_on", c.time_on);
        data_file_->image->counter_count = 0;
        start({.opcode = 3, .flags = 1, .line = 1});
        run({.opcode = 7}, 1 * ms); // counted only with the bit for two levels
        end({.opcode = 3, .flags = 1, .line = 1});
        run({.opcode = 3, .flags = 2, .line = 2}, 1 * ms);
        const data_file_image& image = *data_file_->image;
        ASSERT_EQ(image.counter_count, c.counters);
        const counter_entry* of_3 = image.counters[0].opcode == 3 ? &image.counters[0] : &image.counters[1];
        EXPECT_STREQ(of_3->fname, c.fname);
        EXPECT_EQ(of_3->opflags, c.flags);
        EXPECT_STREQ(of_3->program, "tester");
    }
}

TEST_F(WriteLog, ErrorCountersKeepTheAttributesThatTheLevelNames)
{
    struct {
        int32_t level;
        error_entry expected;
    } const cases[] = {{error_by_dbno, {.dbno = 1}},
                       {error_by_program, {.program = "tester"}},
                       {error_by_opcode, {.opcode = 3, .opname = "op_three"}},
                       {error_by_class, {.err_class = 2}},
                       {error_by_location, {.location = 10}},
                       {error_by_errnum | 0x40, {.errnum = 9}}};
    set_variable("time_on", "3");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.level);
        data_file_->image->error_count = 0;
        settings_for_startup().error_counter_level = c.level;
        run({.opcode = 3, .name = "op_three", .errnum = 9}, ms);
        run({.opcode = 3, .name = "op_three", .errnum = 9}, ms);
        ASSERT_EQ(data_file_->image->error_count, 1U);
        const error_entry& entry = data_file_->image->errors[0];
        EXPECT_EQ(entry.errcnt, 2U);
        EXPECT_EQ(entry.dbno, c.expected.dbno);
        EXPECT_EQ(entry.opcode, c.expected.opcode);
        EXPECT_STREQ(entry.opname, c.expected.opname);
        EXPECT_STREQ(entry.program, c.expected.program);
        EXPECT_EQ(entry.err_class, c.expected.err_class);
        EXPECT_EQ(entry.location, c.expected.location);
        EXPECT_EQ(entry.errnum, c.expected.errnum);
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
        run({.opcode = 0, .name = "fn", .line = 5}, ms);
        run({.opcode = 0, .name = "fn", .line = 6}, ms);
        run({.opcode = 0, .name = "fn", .line = 6}, ms);
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
    const std::string text = trace_text();
    EXPECT_NE(text.find("F,0.009000000,9,9,"), std::string::npos) << text;
    EXPECT_EQ(node(3)->main.total_calls, 1);
    EXPECT_EQ(context().lines_since_flush, 0);
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

TEST_F(WriteLog, NewPeriodWritesIntoTheOldFileAndOpensTheNext)
{
    settings_for_startup().flush_frequency_tv = 7200 * second;
    set_variable("time_on", "3");
    run({.opcode = 3}, ms);
    fake_os::advance_clock(15 * 60 * second);
    run({.opcode = 5}, ms);
    drop_context();
    const std::vector<std::string> files = trace_files();
    ASSERT_EQ(files.size(), 2U);
    EXPECT_NE(files[0].find(".20251115_131500.20251115_133000.plog.txt"), std::string::npos) << files[0];
    EXPECT_NE(files[1].find(".20251115_133000.20251115_134500.plog.txt"), std::string::npos) << files[1];
    EXPECT_EQ(count_of(temp_dir::read(files[0]), "S,1,0,3,"), 1);
    EXPECT_EQ(count_of(temp_dir::read(files[1]), "S,1,0,5,"), 1);
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

TEST_F(WriteLog, MemoryThatRunsOutLosesOnlyTheRecord)
{
    set_variable("time_on", "3");
    run({.opcode = 1}, ms);
    run({.opcode = 1}, ms); // the first one made the missing variables, so this one reads them again
    int32_t opcode = 3;
    std::string lines;
    fake_os::fail(fake_os::call::allocate, 1, ENOMEM, true);
    while (lines.empty() && opcode < 100) { // some nodes may still find room
        ++opcode;
        lines = fake_os::captured_stderr([&] { run({.opcode = opcode}, ms); });
    }
    const std::string number = std::to_string(opcode);
    EXPECT_NE(lines.find("insert_agg_node : failed inserting opcode[" + number + "] level[0]\n"),
              std::string::npos);
    EXPECT_NE(lines.find("write_log : error inserting aggregate - level[0] opcode[" + number + "]\n"),
              std::string::npos);
    EXPECT_NE(lines.find("perf_log : failed updating aggregation - level[0] opcode[" + number + "]()"),
              std::string::npos);
    EXPECT_EQ(context().depth, -1);
    fake_os::fail(fake_os::call::allocate, 0, 0);
    run({.opcode = opcode}, ms);
    EXPECT_EQ(node(opcode)->main.total_calls, 1);
}
