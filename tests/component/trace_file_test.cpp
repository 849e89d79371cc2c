// Trace data files: every character of the records, names, rotation, and what failures leave.
#include "support/tracing_fixture.h"

#include <regex>

#include <gmock/gmock.h>

#include "ostrum.h"
#include "perf_log/buckets/bucket_file.h"
#include "perf_log/output/trace_file.h"

using namespace ostrum;
using fake_os::captured_stderr;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class TraceFile : public tracing_fixture {
protected:
    void SetUp() override { set_variable("time_on", "2"); }

    int32_t flush() { return flush_aggregation_tree_to_file(&context().trace, context().trace.tree); }
    void use_single_file(int32_t limit_bytes)
    {
        settings& s = settings_for_startup();
        s.single_file = true;
        s.single_file_limit_bytes = limit_bytes;
        snprintf(s.single_file_base, sizeof(s.single_file_base), "%s/all.7", dir_.path().c_str());
    }
};

TEST_F(TraceFile, RecordsAreWrittenToTheLetter)
{
    const std::string buckets = dir_.write("buckets", "3 0.01 0.1 1\n");
    ASSERT_EQ(read_opcode_buckets(buckets.c_str()), 1);
    start({.opcode = 3, .name = "op_three", .flags = 2});
    run({.opcode = 0, .name = "fn", .file = "sql.c", .line = 77}, 50 * ms);
    end({.opcode = 3, .records = 5});
    node(3)->main.user_cpu_tv = 3 * ms;
    node(3)->main.sys_cpu_tv = 4 * ms;
    fake_os::advance_clock(200 * second);
    flush();
    ASSERT_EQ(read_opcode_buckets(dir_.write("none", "").c_str()), 0);

    EXPECT_EQ(trace_files(), std::vector{own_file(".20251115_131500.20251115_133000.plog.txt")});
    const std::regex own(std::to_string(getpid()) + "," + std::to_string(context().trace.tid));
    EXPECT_EQ(std::regex_replace(trace_text(), own, "PID,TID"),
              "S,0,0,-2,0,VRT_OP_ELAPSED,1763212500.000000000,source/perf_log/output/tree_writer.cpp,2240,"
              "PID,TID,,0,,0\n"
              "S,1,0,3,2,op_three,0,host.c,10,PID,TID,tester,0,/thing,1\n"
              "S,2,0,0,0,fn,0,sql.c,77,PID,TID,tester,0,/thing,1\n"
              "F,0.050000000,1,1,0.050000000,0.050000000,0,0,0,0,0,0,0\n"
              "S,2,0,3,2,op_three,0,host.c,10,PID,TID,tester,1,/thing,1\n"
              "F,0,0,0,0,0,0,0.010000000,0,0,0,0,0\n"
              "S,2,0,3,2,op_three,0,host.c,10,PID,TID,tester,2,/thing,1\n"
              "F,0.050000000,5,1,0.050000000,0.050000000,0.010000000,0.100000000,0,0,0,0,0\n"
              "F,0.050000000,5,1,0.050000000,0.050000000,0,0,0,0,0,0.003000000,0.004000000\n"
              "F,1763212700.000000000,0,1,0,0,0,0,0,0,0,0,0\n");
    EXPECT_EQ(context().trace.last_flush_s, begin_s + 200);
    EXPECT_EQ(context().trace.next_flush_tv, (begin_s + 800) * second);
}

TEST_F(TraceFile, AnEmptyTreeWritesNothingAndKeepsTheFlushTimes)
{
    run({.opcode = 3}, ms);
    flush();
    const std::string text = trace_text();
    const int64_t due = context().trace.next_flush_tv;
    fake_os::advance_clock(5 * second);
    EXPECT_EQ(flush(), 0);
    EXPECT_EQ(trace_text(), text);
    EXPECT_EQ(context().trace.next_flush_tv, due);
}

TEST_F(TraceFile, SharedFileIsRotatedAtTheLimitAndNeverOverwritesAnOlderOne)
{
    const auto flush_with_limit = [this](size_t limit_bytes) {
        use_single_file(static_cast<int32_t>(limit_bytes));
        run({.opcode = 3}, ms);
        flush();
        return trace_files();
    };
    const std::string shared = dir_.file("all.7.20251115_131500.20251115_133000.plog.txt");
    EXPECT_EQ(flush_with_limit(1 << 30), std::vector{shared});
    EXPECT_TRUE(context().trace.single_file);
    const size_t one_flush = trace_text().size();
    EXPECT_EQ(flush_with_limit(2 * one_flush + 1), std::vector{shared}) << "one byte below the limit";
    const std::string rotated =
        dir_.file("all.7.20251115_131500.20251115_133000." + std::to_string(begin_s) + ".plog.txt");
    EXPECT_EQ(flush_with_limit(3 * one_flush), std::vector{rotated}) << "exactly at the limit";
    EXPECT_EQ(flush_with_limit(1).size(), 2U) << "in the same second";
    EXPECT_EQ(temp_dir::read(rotated).size(), 3 * one_flush);
}

TEST_F(TraceFile, FailuresAreReportedAndTheNextFlushWorks)
{
    // One node that a flush fails to write; how many are left for the next one.
    const auto fail_flush = [this](fake_os::call which, const std::string& message) {
        run({.opcode = 3}, ms);
        fake_os::fail(which, 1, EACCES);
        EXPECT_THAT(captured_stderr([this] { EXPECT_EQ(flush(), -1); }),
                    AllOf(HasSubstr(message), HasSubstr(" - nodes[1] - failed to flush\n")));
        return context().trace.new_node_count;
    };
    EXPECT_EQ(
        fail_flush(fake_os::call::write_file, "__flush_aggregation_tree_to_file : failed writing to file\n"),
        0);
    close_trace_file(context().trace);
    use_single_file(1 << 30);
    EXPECT_EQ(fail_flush(fake_os::call::open_file,
                         "flush_aggregation_tree_to_file : failed opening[" + dir_.path()),
              1);
    EXPECT_EQ(flush(), 1);
    settings_for_startup().single_file_limit_bytes = 1;
    EXPECT_EQ(fail_flush(fake_os::call::rename_path, "flush_aggregation_tree_to_file : failed renaming["), 0);
}

TEST_F(TraceFile, WithoutMemoryTheTextIsWrittenInPiecesUntilOneFails)
{
    constexpr int64_t never = 1'000'000;
    constexpr int nodes = 1'000; // more text than the block that an earlier flush may have left
    const auto flush_without_memory = [this](int64_t failing_write) {
        for (int i = 1; i <= nodes; ++i) {
            run({.opcode = i}, ms);
        }
        fake_os::fail(fake_os::call::allocate, 1, ENOMEM, true);
        fake_os::fail(fake_os::call::write_file, failing_write, ENOSPC);
        const int32_t flushed = flush();
        fake_os::fail(fake_os::call::allocate, never, ENOMEM);
        fake_os::fail(fake_os::call::write_file, never, ENOSPC);
        return flushed;
    };
    EXPECT_EQ(flush_without_memory(never), nodes);
    const std::string text = trace_text();
    EXPECT_EQ(count_of(text, "S,"), nodes + 1);
    EXPECT_EQ(count_of(text, "F,"), nodes + 1);
    EXPECT_EQ(count_of(text, "\n"), 2 * (nodes + 1));

    EXPECT_EQ(flush_without_memory(2), -1);
    const std::string written = trace_text().substr(text.size());
    const auto records = [](const std::string& flushed) { return flushed.substr(flushed.find('\n')); };
    EXPECT_THAT(records(text), StartsWith(records(written))) << "lines behind a gap would have wrong starts";
}

TEST_F(TraceFile, AnyTreeCanBeDumpedAndStaysAsItIs)
{
    run({.opcode = 3}, ms);
    bt_tree* tree = context().trace.tree;
    const std::string path = dir_.file("dump.txt");
    EXPECT_EQ(perf_flush_aggregation_tree(path.c_str(), tree, 11, 12, 1 * second, 2 * second, nullptr), 1);
    EXPECT_EQ(perf_flush_aggregation_tree(path.c_str(), tree, 0, 0, 1 * second, 2 * second, "dumper"), 1);
    const std::string text = temp_dir::read(path);
    EXPECT_THAT(text, AllOf(StartsWith("S,0,0,-2,0,VRT_OP_ELAPSED,1.000000000,source/perf_log/output/"
                                       "tree_writer.cpp,2240,11,12,,0,,0\n"),
                            HasSubstr("2240," + std::to_string(getpid()) + "," + std::to_string(thread_id()) +
                                      ",dumper,")));
    EXPECT_EQ(count_of(text, "F,2.000000000,0,1,0,0,0,0,0,0,0,0,0\n"), 2);
    EXPECT_NE(node(3), nullptr);
    EXPECT_THAT(
        captured_stderr([&] {
            EXPECT_EQ(perf_flush_aggregation_tree("", tree, 0, 0, 0, 0, ""), -1);
            EXPECT_EQ(perf_flush_aggregation_tree("no/such/directory", tree, 0, 0, 0, 0, ""), -1);
        }),
        AllOf(HasSubstr("perf_flush_aggregation_tree : no fpath provided\n"),
              HasSubstr("perf_flush_aggregation_tree : failed opening[no/such/directory] error[2](")));
}
