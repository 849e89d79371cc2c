// Trace data files: every character of the records, names, rotation, and what failures leave.
#include "support/tracing_fixture.h"

#include <sys/stat.h>

#include "ostrum.h"
#include "perf_log/buckets/bucket_file.h"
#include "perf_log/output/trace_file.h"
#include "util/append_file.h"

using namespace ostrum;

class TraceFile : public tracing_fixture {
protected:
    void SetUp() override { set_variable("time_on", "2"); }

    std::string own_prefix() { return std::to_string(getpid()) + "," + std::to_string(context().trace.tid); }
    static std::string replaced(std::string text, const std::string& from, const std::string& to)
    {
        for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
            text.replace(at, from.size(), to);
        }
        return text;
    }
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
    fake_os::advance_clock(200 * second);
    flush_aggregation_tree_to_file(&context().trace, context().trace.tree);
    ASSERT_EQ(read_opcode_buckets(dir_.write("none", "").c_str()), 0);

    ASSERT_EQ(trace_files().size(), 1U);
    EXPECT_EQ(trace_files()[0],
              dir_.file(std::to_string(getpid()) + "_" + std::to_string(context().trace.tid) +
                        ".20251115_131500.20251115_133000.plog.txt"));
    EXPECT_EQ(replaced(trace_text(), own_prefix(), "PID,TID"),
              "S,0,0,-2,0,VRT_OP_ELAPSED,1763212500.000000000,source/perf_log/output/tree_writer.cpp,2240,"
              "PID,TID,,0,,0\n"
              "S,1,0,3,2,op_three,0,host.c,10,PID,TID,tester,0,/thing,1\n"
              "S,2,0,0,0,fn,0,sql.c,77,PID,TID,tester,0,/thing,1\n"
              "F,0.050000000,1,1,0.050000000,0.050000000,0,0,0,0,0,0,0\n"
              "S,2,0,3,2,op_three,0,host.c,10,PID,TID,tester,1,/thing,1\n"
              "F,0,0,0,0,0,0,0.010000000,0,0,0,0,0\n"
              "S,2,0,3,2,op_three,0,host.c,10,PID,TID,tester,2,/thing,1\n"
              "F,0.050000000,5,1,0.050000000,0.050000000,0.010000000,0.100000000,0,0,0,0,0\n"
              "F,0.050000000,5,1,0.050000000,0.050000000,0,0,0,0,0,0,0\n"
              "F,1763212700.000000000,0,1,0,0,0,0,0,0,0,0,0\n");
    EXPECT_EQ(context().trace.last_flush_s, begin_s + 200);
    EXPECT_EQ(context().trace.next_flush_tv, (begin_s + 800) * second);
}

TEST_F(TraceFile, AnEmptyTreeWritesNothingAndKeepsTheFlushTimes)
{
    run({.opcode = 3}, ms);
    flush_aggregation_tree_to_file(&context().trace, context().trace.tree);
    const std::string text = trace_text();
    const int64_t due = context().trace.next_flush_tv;
    fake_os::advance_clock(5 * second);
    EXPECT_EQ(flush_aggregation_tree_to_file(&context().trace, context().trace.tree), 0);
    EXPECT_EQ(trace_text(), text);
    EXPECT_EQ(context().trace.next_flush_tv, due);
}

TEST_F(TraceFile, SharedFileIsRotatedAtTheLimitAndNeverOverwritesAnOlderOne)
{
    use_single_file(1 << 30);
    run({.opcode = 3}, ms);
    EXPECT_TRUE(context().trace.single_file);
    flush_aggregation_tree_to_file(&context().trace, context().trace.tree);
    ASSERT_EQ(trace_files(), std::vector{dir_.file("all.7.20251115_131500.20251115_133000.plog.txt")});
    const auto one_flush = static_cast<int32_t>(trace_text().size());

    use_single_file(2 * one_flush + 1);
    run({.opcode = 3}, ms);
    flush_aggregation_tree_to_file(&context().trace, context().trace.tree);
    EXPECT_EQ(trace_files().size(), 1U) << "one byte below the limit";

    use_single_file(3 * one_flush);
    run({.opcode = 3}, ms);
    flush_aggregation_tree_to_file(&context().trace, context().trace.tree);
    const std::string rotated =
        dir_.file("all.7.20251115_131500.20251115_133000." + std::to_string(begin_s) + ".plog.txt");
    EXPECT_EQ(trace_files(), std::vector{rotated}) << "exactly at the limit";

    use_single_file(1);
    run({.opcode = 3}, ms);
    flush_aggregation_tree_to_file(&context().trace, context().trace.tree); // the same second
    EXPECT_EQ(trace_files().size(), 2U);
    EXPECT_EQ(temp_dir::read(rotated).size(), static_cast<size_t>(3 * one_flush));
}

TEST_F(TraceFile, HalfALineOfAKilledProcessIsEndedBeforeTheNextOne)
{
    use_single_file(1 << 30);
    const std::string path = dir_.write("all.7.20251115_131500.20251115_133000.plog.txt", "S,1,0,3");
    for (int flush = 0; flush < 2; ++flush) {
        run({.opcode = 3}, ms);
        flush_aggregation_tree_to_file(&context().trace, context().trace.tree);
    }
    const std::string text = temp_dir::read(path);
    EXPECT_EQ(text.find("S,1,0,3\nS,0,0,-2,"), 0U) << text;
    EXPECT_EQ(text.find("\n\n"), std::string::npos) << "a whole line has its end already";
}

TEST_F(TraceFile, FailuresAreReportedAndTheNextFlushWorks)
{
    const std::string failed = " - nodes[1] - failed to flush\n";
    // A write that fails: what was gathered is given up, the tree starts afresh.
    run({.opcode = 3}, ms);
    fake_os::fail(fake_os::call::write_file, 1, ENOSPC);
    int32_t result = 0;
    const auto flush = [&] {
        result = flush_aggregation_tree_to_file(&context().trace, context().trace.tree);
    };
    std::string lines = fake_os::captured_stderr(flush);
    EXPECT_EQ(result, -1);
    EXPECT_NE(lines.find("__flush_aggregation_tree_to_file : failed writing to file\n"), std::string::npos);
    EXPECT_NE(lines.find(failed), std::string::npos);
    EXPECT_EQ(context().trace.new_node_count, 0);
    // A shared file that cannot be opened: the tree stays for the next attempt.
    close_trace_file(context().trace);
    use_single_file(1 << 30);
    run({.opcode = 3}, ms);
    fake_os::fail(fake_os::call::open_file, 1, EACCES);
    lines = fake_os::captured_stderr(flush);
    EXPECT_EQ(result, -1);
    EXPECT_NE(lines.find("flush_aggregation_tree_to_file : failed opening[" + dir_.path()),
              std::string::npos);
    EXPECT_EQ(context().trace.new_node_count, 1);
    flush();
    EXPECT_EQ(result, 1);
    // A rotation that fails.
    settings_for_startup().single_file_limit_bytes = 1;
    run({.opcode = 3}, ms);
    fake_os::fail(fake_os::call::rename_path, 1, EACCES);
    lines = fake_os::captured_stderr(flush);
    EXPECT_EQ(result, -1);
    EXPECT_NE(lines.find("flush_aggregation_tree_to_file : failed renaming["), std::string::npos);
    EXPECT_EQ(context().trace.new_node_count, 0);
}

TEST_F(TraceFile, OnlyRegularFilesAreOpened)
{
    const std::string fifo = dir_.file("fifo");
    const std::string link = dir_.file("link");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    ASSERT_EQ(symlink(dir_.write("target", "").c_str(), link.c_str()), 0);
    for (const std::string& path : {fifo, link, dir_.path(), std::string("/dev/null")}) {
        SCOPED_TRACE(path);
        EXPECT_FALSE(open_for_appending(path.c_str()));
    }
    EXPECT_TRUE(open_for_appending(dir_.file("new").c_str()));
}

TEST_F(TraceFile, WithoutMemoryTheTextIsStillWrittenWhole)
{
    for (int i = 1; i <= 100; ++i) {
        run({.opcode = i}, ms);
    }
    fake_os::fail(fake_os::call::allocate, 1, ENOMEM, true);
    EXPECT_EQ(flush_aggregation_tree_to_file(&context().trace, context().trace.tree), 100);
    fake_os::reset();
    const std::string text = trace_text();
    EXPECT_EQ(count_of(text, "S,"), 101);
    EXPECT_EQ(count_of(text, "F,"), 101);
    EXPECT_EQ(count_of(text, "\n"), 202);
}

TEST_F(TraceFile, AnyTreeCanBeDumpedAndStaysAsItIs)
{
    run({.opcode = 3}, ms);
    bt_tree* tree = context().trace.tree;
    const std::string path = dir_.file("dump.txt");
    EXPECT_EQ(perf_flush_aggregation_tree(path.c_str(), tree, 11, 12, 1 * second, 2 * second, nullptr), 1);
    EXPECT_EQ(perf_flush_aggregation_tree(path.c_str(), tree, 0, 0, 1 * second, 2 * second, "dumper"), 1);
    const std::string text = temp_dir::read(path);
    EXPECT_EQ(text.find("S,0,0,-2,0,VRT_OP_ELAPSED,1.000000000,source/perf_log/output/"
                        "tree_writer.cpp,2240,11,12,,0,,0\n"),
              0U);
    EXPECT_EQ(
        count_of(text, "2240," + std::to_string(getpid()) + "," + std::to_string(thread_id()) + ",dumper,"),
        1);
    EXPECT_EQ(count_of(text, "F,2.000000000,0,1,0,0,0,0,0,0,0,0,0\n"), 2);
    EXPECT_NE(node(3), nullptr);
    const std::string lines = fake_os::captured_stderr([&] {
        EXPECT_EQ(perf_flush_aggregation_tree("", tree, 0, 0, 0, 0, ""), -1);
        EXPECT_EQ(perf_flush_aggregation_tree("no/such/directory", tree, 0, 0, 0, 0, ""), -1);
    });
    EXPECT_NE(lines.find("perf_flush_aggregation_tree : no fpath provided\n"), std::string::npos);
    EXPECT_NE(lines.find("perf_flush_aggregation_tree : failed opening[no/such/directory] error[2]("),
              std::string::npos);
}
