#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/command.h"
#include "readers/trace_set.h"
#include "tool/tool_fixture.h"

using namespace ostrum_tool;
using namespace tool_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

namespace {

trace_set read_files(const std::vector<std::string>& files, const tree_options& options = {})
{
    std::vector<trace_input> inputs;
    for (const std::string& file : files) {
        inputs.push_back({file});
    }
    read_progress progress;
    return read_traces(inputs, options, progress);
}

trace_set read_texts(const std::vector<std::string>& texts, const tree_options& options = {})
{
    const temp_dir dir;
    std::vector<std::string> files;
    for (const std::string& text : texts) {
        files.push_back(dir.write("f" + std::to_string(files.size()), text));
        std::filesystem::last_write_time(files.back(), std::filesystem::file_time_type::min()); // not growing
    }
    return read_files(files, options);
}

// "name calls total_ms [buckets] (children)", siblings by name.
std::string outline(const call_tree& tree, node_index index = call_tree::root)
{
    const call_node& node = tree.at(index);
    std::map<std::string_view, std::string> children;
    for (node_index child = 1; child < tree.size(); ++child) {
        if (tree.at(child).parent == index) {
            children[tree.at(child).key.opname] += outline(tree, child);
        }
    }
    std::ostringstream text;
    if (index != call_tree::root) {
        text << node.key.opname << " " << node.sums.calls << " " << node.sums.total_tv / 1'000'000;
        for (const duration_bucket& bucket : node.buckets) {
            text << " [" << bucket.from_tv / 1'000'000 << "-" << bucket.to_tv / 1'000'000 << " "
                 << bucket.sums.calls << "]";
        }
    }
    std::string separator = index == call_tree::root ? "" : " (";
    for (const auto& [name, child] : children) {
        text << separator << child;
        separator = "; ";
    }
    text << (children.empty() || index == call_tree::root ? "" : ")");
    return text.str();
}

} // namespace

TEST(TraceReader, MergesFilesIntoOneTreeByPath)
{
    const std::string one = block(start(1, 7, "search") + start(2, 0, "sql") + end("0.300000000", 3) +
                                  start(2, 7, "search", "prog", 1) + end("0.001000000", 1, "0,0.010000000") +
                                  start(2, 7, "search", "prog", 2) + end("0.500000000", 1, "0.010000000,0") +
                                  end("0.501000000", 2) + start(1, 0, "sql") + end("0.002000000", 1));
    const trace_set set = read_texts({one, one});
    EXPECT_EQ(outline(set.tree), "search 4 1002 [0-10 2] [10-0 2] (sql 6 600); sql 2 4");
    EXPECT_TRUE(set.damaged.empty());
    EXPECT_EQ(set.coverage.files, 2);
    EXPECT_EQ(set.coverage.flushes, 2);
    EXPECT_THAT(set.coverage.threads, ElementsAre(Pair(10, 77)));
    EXPECT_EQ(set.coverage.from_tv, 1'700'000'000'000'000'000);
    EXPECT_EQ(set.coverage.to_tv, 1'700'000'100'000'000'000);
}

TEST(TraceReader, FiltersAndGroupsByWhatTheRecordsTell)
{
    const std::string text =
        block(start(1, 1, "a", "p") + start(2, 1, "b", "q") + end("0.001000000", 1) + end("0.002000000", 1)) +
        frame_start(1'700'003'600, 11, 5) + start(1, 1, "a", "q", 0, 11, 5) + end("0.004000000", 1) +
        frame_end;
    tree_options since, until, pid, tid, program, by_thread, by_process;
    since.filter.since_tv = 1'700'003'600'000'000'000;
    until.filter.until_tv = 1'700'003'600'000'000'000;
    pid.filter.pids = {9, 11};
    tid.filter.tids = {77};
    program.filter.programs = {"p"};
    by_thread.by = grouping::thread;
    by_process.by = grouping::process;
    const struct {
        const tree_options& options;
        const char* tree;
    } cases[] = {{since, "a 1 4"},
                 {until, "a 1 2 (b 1 1)"},
                 {pid, "a 1 4"},
                 {tid, "a 1 2 (b 1 1)"},
                 {program, "a 1 2 (b 1 1)"},
                 {by_thread, "process 10 thread 77 0 0 (a 1 2 (b 1 1)); process 11 thread 5 0 0 (a 1 4)"},
                 {by_process, "process 10 0 0 (a 1 2 (b 1 1)); process 11 0 0 (a 1 4)"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.tree);
        EXPECT_EQ(outline(read_texts({text}, c.options).tree), c.tree);
    }
}

TEST(TraceReader, CommasInTextsAreToldApartByTheNumbersBetween)
{
    const struct {
        const char *line, *opname, *fname, *program, *type;
    } cases[] = {
        {"S,1,0,-9,3,f<a, b>,0,x.c,-12,10,18446744073709551615,p,2,/t,-5", "f<a, b>", "x.c", "p", "/t"},
        {"S,1,0,-9,3,f(a,0,b),0,x.c,-12,10,18446744073709551615,p,2,/t,-5", "f(a,0,b)", "x.c", "p", "/t"},
        {"S,1,0,-9,3,f<a, b>,0,x,y.c,-12,10,18446744073709551615,p,q,2,/t,u,-5", "f<a, b>", "x,y.c", "p,q",
         "/t,u"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        start_record record;
        ASSERT_EQ(parse_start(c.line, record), nullptr);
        EXPECT_EQ(record.opname, c.opname);
        EXPECT_EQ(record.fname, c.fname);
        EXPECT_EQ(record.lineno, -12);
        EXPECT_EQ(record.tid, 18446744073709551615U);
        EXPECT_EQ(record.program, c.program);
        EXPECT_EQ(record.bucket, 2);
        EXPECT_EQ(record.obj_type, c.type);
        EXPECT_EQ(record.db_num, -5);
    }
}

TEST(TraceReader, DamageIsToldWithItsOffsetAndTheRestIsRead)
{
    const std::string call_a = start(1, 1, "a") + end("0.001000000", 1);
    const std::string cut = end("0.009000000", 1).substr(0, 12);
    const std::string head = frame_start();
    const struct {
        const char* name;
        std::string text, tree;
        size_t offset;
        const char* problem;
    } cases[] = {
        {"foreign line", block("what,is,this\n" + call_a), "a 1 1", head.size(), "neither"},
        {"empty line and NUL bytes", block("\n" + std::string(3, '\0') + "\n" + call_a), "a 1 1",
         head.size() + 1, "neither"},
        {"endless line", block(std::string(2'000'000, 'S') + "\n" + call_a), "a 1 1", head.size(),
         "line is too long"},
        {"line of nothing but commas", block("S," + std::string(60'000, ',') + "\n" + end("0", 1) + call_a),
         "(missing record) 1 0; a 1 1", head.size(), "too many fields"},
        {"cut tail", head + call_a + start(1, 2, "b") + cut, "a 1 1; b 0 0",
         (head + call_a + start(1, 2, "b")).size(), "last line is cut short"},
        {"block without an end", head + call_a, "a 1 1", 0, "block without an end"},
        {"file that goes on after a cut", head + start(1, 2, "b") + block(call_a), "a 1 1; b 0 0",
         (head + start(1, 2, "b")).size(), "1 start records have no figures"},
        {"figures with a bad number", block(start(1, 2, "b") + end("1,5x", 1) + call_a), "a 1 1; b 0 0",
         (head + start(1, 2, "b")).size(), "figures record has too many"},
        {"figures out of range", block(start(1, 2, "b") + end("99999999999999999999.0", 1) + call_a),
         "a 1 1; b 0 0", (head + start(1, 2, "b")).size(), "figures record with a bad number"},
        {"unreadable start record", block("S,1,0,9\n" + end("0.003000000", 1) + call_a),
         "(missing record) 1 3; a 1 1", head.size(), "start record has too few"},
        {"missing start record",
         block(start(2, 1, "a") + end("0.001000000", 1) + end("0.003000000", 2) + call_a),
         "(missing record) 2 3 (a 1 1); a 1 1", head.size(), "level 2 follows level 0"},
        {"impossible level", block(start(2'000'000'000, 1, "a") + end("0", 1) + call_a),
         "(missing record) 1 0; a 1 1", head.size(), "impossible level"},
        {"figures without a start", frame_end + block(call_a), "a 1 1", 0, "figures record without"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const trace_set set = read_texts({c.text});
        ASSERT_EQ(set.damaged.size(), 1U);
        EXPECT_THAT(set.damaged[0].list.first,
                    testing::Contains(testing::AllOf(testing::Field(&damage::offset, c.offset),
                                                     testing::Field(&damage::what, HasSubstr(c.problem)))));
        EXPECT_EQ(outline(set.tree), c.tree);
    }
}

TEST(TraceReader, AMillionBadLinesAreCountedNotKept)
{
    std::string text;
    for (int line = 0; line < 200'000; ++line) {
        text += "S,1\n";
    }
    const trace_set set = read_texts({text});
    ASSERT_EQ(set.damaged.size(), 1U);
    EXPECT_GE(set.damaged[0].list.count, 200'000);
    EXPECT_LE(set.damaged[0].list.first.size(), damage_list::most_kept);
}

// Blocks that share a file may lie inside one another, between two outermost paths.
TEST(TraceReader, BlocksInsideOneAnotherAreNoDamage)
{
    const std::string call = start(1, 1, "a") + end("0.001000000", 1);
    const trace_set set = read_texts({frame_start() + call + block(call) + call + frame_end});
    EXPECT_EQ(outline(set.tree), "a 3 3");
    EXPECT_TRUE(set.damaged.empty());
}

// Large files are read in parts by several threads: nothing is lost or counted twice where they are cut.
TEST(TraceReader, PartsOfALargeFileAddUpAsOneReadingWould)
{
    std::string text;
    int64_t calls = 0;
    for (int number = 0; text.size() < 40'000'000; ++number) {
        std::string paths;
        for (int path = 0; path < 1 + number % 7; ++path, ++calls) {
            paths += start(1, 1 + path, std::string(1 + static_cast<size_t>(number * 37 % 400), 'n')) +
                     end("0.001000000", 1);
        }
        text += block(paths);
    }
    const trace_set set = read_texts({text});
    EXPECT_TRUE(set.damaged.empty());
    EXPECT_EQ(set.coverage.operations, calls);
    EXPECT_EQ(set.bytes > text.size(), true) << "it was read in one part";
}

TEST(TraceReader, CompressedFilesAreReadAndCutOnesSaySo)
{
    const temp_dir dir;
    const std::string text = block(start(1, 1, "a") + end("0.001000000", 1));
    const std::string plain = dir.write("a.plog.txt", text);
    for (const char* pack : {"gzip -k ", "zstd -q "}) {
        ASSERT_EQ(std::system((pack + plain).c_str()), 0); // NOLINT(cert-env33-c)
    }
    for (const char* file : {"a.plog.txt.gz", "a.plog.txt.zst"}) {
        SCOPED_TRACE(file);
        const trace_set whole = read_files({dir.file(file)});
        EXPECT_EQ(outline(whole.tree), "a 1 1");
        EXPECT_TRUE(whole.damaged.empty() && whole.unreadable.empty());
        const std::string packed = dir.read(dir.file(file));
        const trace_set cut = read_files({dir.write("cut", packed.substr(0, packed.size() / 2))});
        ASSERT_FALSE(cut.damaged.empty());
        EXPECT_THAT(cut.damaged[0].list.first[0].what, HasSubstr("compressed data is cut short"));
    }
}

// The writer adds the rest of a block while the file is read.
TEST(TraceReader, WaitsForTheRestOfABlockThatIsBeingWritten)
{
    const temp_dir dir;
    const std::string text = block(start(1, 1, "a") + end("0.001000000", 1));
    const std::string file = dir.write("a.plog.txt", text.substr(0, text.size() - 60));
    std::thread writer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
        std::ofstream(file, std::ios::app) << text.substr(text.size() - 60);
    });
    const trace_set set = read_files({file});
    writer.join();
    EXPECT_EQ(outline(set.tree), "a 1 1");
    EXPECT_TRUE(set.damaged.empty());
}
