#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "command_line.h"
#include "readers/data_file.h"
#include "readers/trace_file.h"
#include "support/temp_dir.h"
#include "tool_errors.h"
#include "value_text.h"

using namespace ostrum_tool;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const std::string frame_start =
    "S,0,0,-2,0,VRT_OP_ELAPSED,1700000000.000000000,source/f.cpp,2240,10,77,prog,0,,0\n";
const std::string frame_end = "F,1700000100.000000000,0,1,0,0,0,0,0,0,0,0,0\n";

std::string start(int level, int opcode, const std::string& name, const std::string& program = "prog",
                  int bucket = 0)
{
    return "S," + std::to_string(level) + ",0," + std::to_string(opcode) + ",0," + name + ",0,a.c,12,10,77," +
           program + "," + std::to_string(bucket) + ",/part,1\n";
}

std::string end(const std::string& total, int calls, const std::string& bounds = "0,0")
{
    return "F," + total + ",2," + std::to_string(calls) + ",0.100000000,0.900000000," + bounds +
           ",0,0,1,0,0\n";
}

trace_reader read_all(const std::vector<std::string>& files, bool brief = false)
{
    trace_reader reader(brief);
    int number = 0;
    for (const std::string& text : files) {
        std::istringstream input(text);
        reader.read(input, "f" + std::to_string(++number));
    }
    return reader;
}

// "name calls total_ms [buckets] (children)", siblings by opcode and name.
std::string outline(const call_tree& tree, node_index index = call_tree::root)
{
    const call_node& node = tree.at(index);
    std::ostringstream text;
    if (index != call_tree::root) {
        text << node.key.opname << " " << node.sums.calls << " " << node.sums.total_tv / 1'000'000;
        for (const auto& [bounds, sums] : node.buckets) {
            text << " [" << bounds.first / 1'000'000 << "-" << bounds.second / 1'000'000 << " " << sums.calls
                 << "]";
        }
    }
    std::string separator = index == call_tree::root ? "" : " (";
    for (const auto& [key, child] : node.children) {
        text << separator << outline(tree, child);
        separator = "; ";
    }
    text << (node.children.empty() || index == call_tree::root ? "" : ")");
    return text.str();
}

struct tool_run {
    int status;
    std::string out, err;
};

tool_run run(const std::vector<std::string>& words)
{
    std::ostringstream out;
    std::ostringstream err;
    const int status = run_tool(words, {out, err});
    return {status, out.str(), err.str()};
}

} // namespace

TEST(TraceReader, MergesFilesIntoOneTreeByPath)
{
    const std::string one = frame_start + start(1, 7, "search") + start(2, 0, "sql") + end("0.300000000", 3) +
                            start(2, 7, "search", "prog", 1) + end("0.001000000", 1, "0,0.010000000") +
                            start(2, 7, "search", "prog", 2) + end("0.500000000", 1, "0.010000000,0") +
                            end("0.501000000", 2) + start(1, 0, "sql") + end("0.002000000", 1) + frame_end;
    const trace_reader reader = read_all({one, one});
    EXPECT_EQ(outline(reader.tree()), "sql 2 4; search 4 1002 [0-10 2] [10-0 2] (sql 6 600)");
    EXPECT_EQ(reader.problems().count, 0);
    EXPECT_EQ(reader.coverage().files, 2);
    EXPECT_EQ(reader.coverage().flushes, 2);
    EXPECT_THAT(reader.coverage().threads, ElementsAre(std::pair<uint32_t, uint64_t>(10, 77)));
    EXPECT_EQ(reader.coverage().from_tv, 1'700'000'000'000'000'000);
    EXPECT_EQ(reader.coverage().to_tv, 1'700'000'100'000'000'000);
}

TEST(TraceReader, KeepsApartWhatDiffersUnlessBrief)
{
    const std::string text = frame_start + start(1, 7, "search", "a") + end("0", 1) +
                             start(1, 7, "search", "b") + end("0.004000000", 2) + frame_end;
    EXPECT_EQ(outline(read_all({text}).tree()), "search 1 0; search 2 4");
    EXPECT_EQ(outline(read_all({text}, true).tree()), "search 3 4");
}

TEST(TraceReader, CommasInNamesAreToldApartByTheNumbersBetween)
{
    start_record record;
    std::string problem;
    ASSERT_TRUE(
        parse_start("S,1,0,-9,3,f<a, b>,0,x,y.c,-12,10,18446744073709551615,p,q,2,/t,u,-5", record, problem));
    EXPECT_EQ(record.opname, "f<a, b>");
    EXPECT_EQ(record.fname, "x,y.c");
    EXPECT_EQ(record.lineno, -12);
    EXPECT_EQ(record.tid, 18446744073709551615U);
    EXPECT_EQ(record.program, "p,q");
    EXPECT_EQ(record.bucket, 2);
    EXPECT_EQ(record.obj_type, "/t,u");
    EXPECT_EQ(record.db_num, -5);
}

TEST(TraceReader, DamageIsReportedAndTheRestIsRead)
{
    const std::string call_a = start(1, 1, "a") + end("0.001000000", 1);
    const std::string cut = end("0.009000000", 1).substr(0, 12);
    const struct {
        const char* name;
        std::string text, tree, problem;
    } cases[] = {
        {"foreign line", frame_start + "what,is,this\n" + call_a + frame_end, "a 1 1", "f1:2: neither"},
        {"empty line and NUL bytes", frame_start + "\n" + std::string(3, '\0') + "\n" + call_a + frame_end,
         "a 1 1", "f1:3: neither"},
        {"endless line", frame_start + std::string(200'000, 'S') + "\n" + call_a + frame_end, "a 1 1",
         "f1:2: line is too long"},
        {"cut tail", frame_start + call_a + start(1, 2, "b") + cut, "a 1 1; b 0 0",
         "f1:5: 2 start records have no"},
        {"file that goes on after a cut",
         frame_start + start(1, 2, "b") + frame_start + call_a + frame_end + frame_end, "a 1 1; b 0 0",
         "f1:3: 1 start records have no figures"},
        {"figures with a bad number", frame_start + start(1, 2, "b") + end("1,5x", 1) + call_a + frame_end,
         "a 1 1; b 0 0", "f1:3: figures record has 14"},
        {"figures out of range",
         frame_start + start(1, 2, "b") + end("99999999999999999999.0", 1) + call_a + frame_end,
         "a 1 1; b 0 0", "f1:3: figures record with a bad number"},
        {"unreadable start record", frame_start + "S,1,0,9\n" + end("0.003000000", 1) + call_a + frame_end,
         "(missing record) 1 3; a 1 1", "f1:2: start record has 4 fields in place of 15"},
        {"missing start record",
         frame_start + start(2, 1, "a") + end("0.001000000", 1) + end("0.003000000", 2) + call_a + frame_end,
         "(missing record) 2 3 (a 1 1); a 1 1", "f1:2: level 2 follows level 0"},
        {"impossible level", frame_start + start(2'000'000'000, 1, "a") + end("0", 1) + call_a + frame_end,
         "(missing record) 1 0; a 1 1", "f1:2: start record with an impossible level"},
        {"figures without a start", frame_end + frame_start + call_a + frame_end, "a 1 1",
         "f1:1: figures record without"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const trace_reader reader = read_all({c.text});
        EXPECT_THAT(reader.problems().texts, testing::Contains(HasSubstr(c.problem)));
        EXPECT_EQ(outline(reader.tree()), c.tree);
    }
}

TEST(TraceReader, MillionBadLinesAreCountedNotKept)
{
    std::string text;
    for (int line = 0; line < 200'000; ++line) {
        text += "S,1\n";
    }
    const trace_reader reader = read_all({text});
    EXPECT_EQ(reader.problems().count, 200'001);
    EXPECT_LE(reader.problems().texts.size(), 10U);
}

TEST(DurationText, IsShortForPeopleAndExactInCsv)
{
    const struct {
        int64_t tv;
        const char *text, *csv;
    } cases[] = {{0, "0ns", "0.000000000"},
                 {999, "999ns", "0.000000999"},
                 {1'500, "1.50us", "0.000001500"},
                 {999'499, "999us", "0.000999499"},
                 {999'500, "1.00ms", "0.000999500"},
                 {12'345'678, "12.3ms", "0.012345678"},
                 {99'960'000'000, "1m39s", "99.960000000"},
                 {7'265'000'000'000, "2h01m", "7265.000000000"},
                 {-1, "-1ns", "-0.000000001"}};
    for (const auto& c : cases) {
        EXPECT_EQ(duration_text(c.tv, output_format::text), c.text);
        EXPECT_EQ(duration_text(c.tv, output_format::csv), c.csv);
    }
}

TEST(ReportCommand, PrintsTheMergedTree)
{
    const temp_dir dir;
    dir.write("1_2.plog.txt", frame_start + start(1, 7, "search", "a") + start(2, 0, "s\x1bql") +
                                  end("0.300000000", 3) + end("0.400000000", 2) + start(1, 7, "search", "b") +
                                  start(2, 0, "x", "b", 1) + end("0.200000000", 4, "0,0.010000000") +
                                  end("1.200000000", 8) + frame_end);
    dir.write("other.txt", "not a trace file\n");
    const tool_run shown = run({"report", "--buckets", dir.path()});
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.err, "");
    EXPECT_THAT(shown.out, HasSubstr("1 file, 1 process, 1 thread, 1 flush, "));
    const std::string table = shown.out.substr(shown.out.find("operation"));
    EXPECT_EQ(
        table,
        "operation                calls  errors  total   self    min  average    max  of parent  of all\n"
        "-----------------------  -----  ------  -----  -----  -----  -------  -----  ---------  ------\n"
        "search (7) [b]               8       1  1.20s  1.20s  100ms    150ms  900ms      75.0%   75.0%\n"
        "  | < 10.0ms ##########      4       1  200ms         100ms   50.0ms  900ms\n"
        "search (7) [a]               2       1  400ms  100ms  100ms    200ms  900ms      25.0%   25.0%\n"
        "  s\\x1Bql                    3       1  300ms  300ms  100ms    100ms  900ms      75.0%   18.8%\n");

    const tool_run csv = run({"report", "--depth=1", "--sort", "name", "--format", "csv", dir.path()});
    EXPECT_THAT(csv.out, HasSubstr("\n0,search (7) [a],2,1,0.400000000,0.100000000,0.100000000,0.200000000,"
                                   "0.900000000,25.000,25.000\n0,search (7) [b],"));
}

TEST(ToolErrors, HaveAMessageAndAStatus)
{
    const temp_dir dir;
    const std::string empty = dir.write("empty.plog.txt", "");
    const std::string small = dir.write("small.dat", "12345");
    const struct {
        std::vector<std::string> words;
        int status;
        std::string message;
    } cases[] = {
        {{}, 2, "a command is needed"},
        {{"flame"}, 2, "unknown command flame"},
        {{"report"}, 2, "a directory or a trace data file is needed"},
        {{"report", "--wide", dir.path()}, 2, "unknown option --wide"},
        {{"report", "--sort"}, 2, "option --sort needs a value"},
        {{"report", "--buckets=1", "x"}, 2, "takes no value"},
        {{"report", "--depth", "0", "x"}, 2, "--depth needs a number"},
        {{"report", "--sort", "luck", "x"}, 2, "cannot sort by luck"},
        {{"report", dir.file("none")}, 1, "none: "},
        {{"report", empty}, 1, "no operations found"},
        {{"report", dir.write("cut.plog.txt", frame_start + start(1, 1, "a"))}, 1, "no operations found"},
        {{"counters", small}, 1, "5 bytes in place of 5800544"},
        {{"errors", dir.path()}, 1, "not a regular file"},
        {{"variables", "a", "b"}, 2, "exactly one DATAFILE"},
        {{"metrics", "--format", "xml", small}, 2, "unknown format xml"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words));
        const tool_run result = run(c.words);
        EXPECT_EQ(result.status, c.status);
        EXPECT_THAT(result.err, HasSubstr(c.message));
        EXPECT_EQ(result.out, "");
    }
    const std::string good =
        dir.write("good.plog.txt", frame_start + start(1, 1, "a") + end("1", 1) + frame_end);
    const tool_run partly = run({"report", dir.file("none"), good});
    EXPECT_EQ(partly.status, 1) << "what can be read is shown all the same";
    EXPECT_THAT(partly.out, HasSubstr("a (1)"));
}

namespace {

// A data file made by hand from the published offsets.
class image_builder {
public:
    image_builder() : bytes_(data_file_bytes, '\0') { text(0, "ostrum-64bit\n"); }
    image_builder& word(size_t offset, uint64_t value)
    {
        bytes_.replace(offset, sizeof value, reinterpret_cast<const char*>(&value), sizeof value);
        return *this;
    }
    image_builder& text(size_t offset, const std::string& value)
    {
        bytes_.replace(offset, value.size(), value);
        return *this;
    }
    [[nodiscard]] const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
};

} // namespace

TEST(DataFileCommands, ShowTheTables)
{
    const size_t counter = 368 + 656;
    const size_t error = 3'309'960;
    const size_t variable = 2'687'352 + 1216;
    image_builder image;
    image.word(352, 4711)
        .word(2'687'344, 2)
        .word(5'800'328, 1)
        .word(3'309'944, 2)
        .word(5'800'336 + 8 * 25, 99);
    image.text(counter + 64, "search")
        .text(counter + 192, "dm")
        .text(counter + 320, "a.c")
        .text(counter + 448, "/part");
    image.word(counter + 576, 7).word(counter + 584, 3).word(counter + 592, 12).word(counter + 600, 50);
    image.word(counter + 608, 4)
        .word(counter + 616, 1)
        .word(counter + 624, 2'000'000)
        .word(counter + 632, 1000);
    image.word(counter + 640, 2000).word(counter + 648, 1);
    image.word(error, 1).word(error + 8, 7).text(error + 16, "search").text(error + 144, "dm");
    image.word(error + 272, 2).word(error + 280, 10).word(error + 288, 37).word(error + 296, 5);
    image.text(variable + 64, "time_on").text(variable + 192, "3");
    const temp_dir dir;
    const std::string path = dir.write("ostrum_data.dat", image.bytes());

    EXPECT_THAT(
        run({"counters", "--format=csv", path}).out,
        HasSubstr(
            "\nsearch (7),3,dm,a.c:12,/part,1,4,1,50,0.002000000,0.000500000,0.000001000,0.000002000\n"));
    EXPECT_THAT(run({"counters", path}).out, HasSubstr("2 live counters, last opened by process 4711\n"));
    EXPECT_THAT(run({"errors", "--format=csv", path}).out, HasSubstr("\n5,37,2,10,search (7),dm,1\n"));
    EXPECT_THAT(run({"variables", "--format=csv", path}).out, HasSubstr("\ntime_on,3\n"));
    EXPECT_THAT(run({"metrics", "--format=csv", path}).out, HasSubstr("\nfe_connects_error_total,99\n"));
    EXPECT_EQ(dir.read(path), image.bytes());
}

TEST(DataFileReader, TrustsNoCountAndNoText)
{
    image_builder image;
    image.text(0, "nonsense").word(2'687'344, ~0ULL).word(3'309'944, 513).word(5'800'328, 8193);
    image.text(368 + 64, std::string(128, 'n')).text(2'687'352 + 192, std::string(1024, 'v'));
    image.word(368 + 576, 0xFFFFFFFE).word(368 + 592, ~0ULL);
    const data_file file = decode_data_file(
        {reinterpret_cast<const unsigned char*>(image.bytes().data()), image.bytes().size()});
    EXPECT_EQ(file.counters.size(), 4096U);
    EXPECT_EQ(file.variables.size(), 512U);
    EXPECT_EQ(file.errors.size(), 8192U);
    EXPECT_EQ(file.problems.size(), 4U);
    EXPECT_EQ(file.counters[0].opname, std::string(127, 'n'));
    EXPECT_EQ(file.counters[0].opcode, -2);
    EXPECT_EQ(file.counters[0].lineno, -1);
    EXPECT_EQ(file.variables[0].value, std::string(1023, 'v'));
}
