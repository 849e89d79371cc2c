#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "output/value_text.h"
#include "readers/call_tree.h"
#include "report/percentiles.h"
#include "tool/tool_fixture.h"

using namespace ostrum_tool;
using namespace tool_test;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::string sample = block(
    start(1, 7, "search", "a") + start(2, 0, "s\x1bql") + end("0.300000000", 3) + end("0.400000000", 2) +
    start(1, 7, "search", "b") + start(2, 0, "x", "b", 1) + end("0.200000000", 4, "0,0.010000000") +
    start(2, 0, "x", "b", 2) + end("1.000000000", 4, "0.010000000,0") + end("1.200000000", 8));

std::string table_of(const tool_run& shown)
{
    return shown.out.substr(std::min(shown.out.find("operation"), shown.out.size()));
}

} // namespace

TEST(ValueText, IsShortForPeopleAndHarmlessForTerminals)
{
    const struct {
        int64_t tv;
        const char* text;
    } durations[] = {
        {0, "0ns"},          {999, "999ns"},         {1'500, "1.50us"},         {999'499, "999us"},
        {999'500, "1.00ms"}, {12'345'678, "12.3ms"}, {99'960'000'000, "1m39s"}, {7'265'000'000'000, "2h01m"},
        {-1'500, "-1.50us"}};
    for (const auto& c : durations) {
        EXPECT_EQ(duration_text(c.tv), c.text);
    }
    const struct {
        const char *raw, *shown;
    } texts[] = {
        {"plain, \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "plain, \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"\x1b[2J\x7f\n", "\\x1B[2J\\x7F\\x0A"},
        {"\xC2\x9B", "\\xC2\\x9B"},             // CSI in one byte
        {"\xE2\x80\xAE", "\\xE2\\x80\\xAE"},    // reverses what follows
        {"\xC0\x9B\xFFz", "\\xC0\\x9B\\xFFz"}}; // no UTF-8
    for (const auto& c : texts) {
        EXPECT_EQ(printable(c.raw), c.shown);
    }
}

TEST(Percentiles, AreTheIntervalsThatTheBucketsProve)
{
    call_tree tree;
    path_key key;
    key.opname = "a";
    const node_index node = tree.child(call_tree::root, key);
    EXPECT_FALSE(percentile(tree.at(node), 50));
    const auto add = [&](int64_t from, int64_t to, int64_t calls, int64_t min, int64_t max, int64_t errors) {
        totals sums;
        sums.calls = calls;
        sums.min_tv = min;
        sums.max_tv = max;
        sums.errors = errors;
        tree.add_bucket(node, from, to, sums);
        tree.sums(node).add(sums);
    };
    add(0, 100, 90, 40, 80, 0);
    add(100, 1000, 9, 200, 900, 1); // the failed call may have been shorter than the shortest good one
    add(1000, 0, 1, 5000, 5000, 0);
    const auto shown = [&](double percent) {
        const auto interval = percentile(tree.at(node), percent);
        return std::pair(interval->from_tv, interval->to_tv);
    };
    EXPECT_EQ(shown(50), std::pair(int64_t{40}, int64_t{80}));
    EXPECT_EQ(shown(90), std::pair(int64_t{40}, int64_t{80}));
    EXPECT_EQ(shown(90.5), std::pair(int64_t{100}, int64_t{900}));
    EXPECT_EQ(shown(100), std::pair(int64_t{5000}, int64_t{5000}));
    tree.sums(node).calls += 100; // calls of a time without buckets
    EXPECT_EQ(shown(50), std::pair(int64_t{0}, int64_t{5000}));
}

TEST(ReportCommand, PrintsTheMergedTree)
{
    const temp_dir dir;
    dir.write("1_2.plog.txt", sample);
    dir.write("other.txt", "not a trace file\n");
    const tool_run shown = run({"report", "--buckets", dir.path()});
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.err, "");
    EXPECT_THAT(shown.out, HasSubstr("1 file, 1 process, 1 thread, 1 flush, "));
    EXPECT_EQ(
        table_of(shown),
        R"(operation                 calls  errors  records  total   self    min  average    max  CPU  of parent  of all
------------------------  -----  ------  -------  -----  -----  -----  -------  -----  ---  ---------  ------
search (7) [b]                8       1        2  1.20s  1.20s  100ms    150ms  900ms    -      75.0%   75.0%
  | < 10.0ms  ##########      4       1        2  200ms      -  100ms   50.0ms  900ms    -
  | >= 10.0ms ##########      4       1        2  1.00s      -  100ms    250ms  900ms    -
search (7) [a]                2       1        2  400ms  100ms  100ms    200ms  900ms    -      25.0%   25.0%
  s\x1Bql                     3       1        2  300ms  300ms  100ms    100ms  900ms    -      75.0%   18.8%
)");
}

TEST(ReportCommand, ShowsWhatTheOptionsAskFor)
{
    const temp_dir dir;
    const std::string file = dir.write("1_2.plog.txt", sample);
    const struct {
        std::vector<std::string> options;
        const char *part, *missing;
    } cases[] = {
        {{"--brief"}, "\nsearch (7)     10 ", "[a]"},
        {{"--flat"}, "\nsearch (7)     10 ", "  s\\x1Bql "},
        {{"--depth", "1"}, "[a]", "ql"},
        {{"--name", "^s.q"}, "  s\\x1Bql", "[b]"},
        {{"--opcode", "7"}, "ql", "nothing"},
        {{"--min-time", "400ms"}, "[a]", "ql"},
        {{"--top", "1"}, "search (7) ", "[a]"},
        {{"--program", "b,c"}, "search (7) ", "ql"},
        {{"--percentiles", "50,99", "--depth=1"}, "no buckets", "p90"},
        {{"--percentiles", "50"}, " 0ns - 10.0ms\n", "p99"},
        {{"--by", "thread"}, "\nprocess 10 thread 77 ", "nothing"},
        {{"--csv"},
         ",search,7,0,b,a.c,12,/part,1,,8,1,2,1200000000,1200000000,100000000,150000000,900000000,",
         "\x1b"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.options));
        const tool_run shown = run_with({"report", file}, c.options, {.terminal = true});
        EXPECT_EQ(shown.status, 0) << shown.err;
        EXPECT_THAT(shown.out, HasSubstr(c.part));
        EXPECT_THAT(shown.out, Not(HasSubstr(c.missing)));
    }
}

// Inclusive time of an operation that calls itself is counted once, its own time in full.
TEST(ReportCommand, FlatCountsRecursionOnce)
{
    const temp_dir dir;
    const std::string file =
        dir.write("a.plog.txt", block(start(1, 1, "a") + start(2, 1, "b") + start(3, 1, "a") +
                                      end("1.000000000", 1) + end("2.000000000", 1) + end("3.000000000", 1)));
    const auto rows = nlohmann::json::parse(run({"report", "--flat", "--json", file}).out).at("rows");
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0].at("name"), "a");
    EXPECT_EQ(rows[0].at("total_ns"), 3'000'000'000);
    EXPECT_EQ(rows[0].at("self_ns"), 2'000'000'000);
    EXPECT_EQ(rows[0].at("calls"), 2);
}

TEST(ReportCommand, JsonTellsPathsExactly)
{
    const temp_dir dir;
    const std::string file = dir.write("a.plog.txt", sample);
    const auto report =
        nlohmann::json::parse(run({"report", "--json", "--buckets", "--percentiles=50", file}).out);
    EXPECT_EQ(report.at("schema"), 1);
    EXPECT_EQ(report.at("coverage").at("from_ns"), 1'700'000'000'000'000'000);
    const auto& rows = report.at("rows");
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0].at("buckets").at(1).at("from_ns"), 10'000'000);
    EXPECT_EQ(rows[0].at("buckets").at(1).at("to_ns"), nullptr);
    EXPECT_EQ(rows[0].at("p50_to_ns"), 10'000'000);
    EXPECT_EQ(rows[2].at("name"), "s\x1bql");
    EXPECT_EQ(rows[2].at("parent"), rows[1].at("id"));
    EXPECT_EQ(rows[2].at("p50_to_ns"), nullptr);
}

TEST(ReportCommand, FollowReadsWhatFilesGain)
{
    const temp_dir dir;
    const std::string one = block(start(1, 1, "a") + end("1.000000000", 1));
    dir.write("a.plog.txt", one + frame_start() + start(1, 1, "a"));
    const tool_run shown = run({"report", "--follow", "--count", "1", "--csv", dir.path()});
    EXPECT_EQ(shown.status, 0);
    EXPECT_THAT(shown.out, HasSubstr(",a,1,0,prog,a.c,12,/part,1,,1,1,2,"));
    std::thread writer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        dir.write("b.plog.txt", one);
    });
    const std::string absent = dir.file("absent.plog.txt");
    const tool_run twice =
        run({"report", "--follow", "--count", "2", "--interval", "10ms", "--csv", dir.path(), absent});
    writer.join();
    EXPECT_THAT(twice.out, HasSubstr(",a,1,0,prog,a.c,12,/part,1,,2,2,4,"));
    EXPECT_EQ(twice.err, "ostrum: " + absent + ": No such file or directory\n") << "told once";
}

TEST(ToolErrors, HaveAMessageAndAStatus)
{
    const temp_dir dir;
    const std::string empty = dir.write("empty.plog.txt", "");
    const std::string small = dir.write("small.dat", "12345");
    const std::string good = dir.write("good.txt", block(start(1, 1, "a") + end("1", 1)));
    const struct {
        std::vector<std::string> words;
        int status;
        std::string message;
    } cases[] = {
        {{}, 2, "A subcommand is required"},
        {{"bake"}, 2, "unknown command bake"},
        {{"report", "--wide", dir.path()}, 2, "--wide"},
        {{"report", "--sort"}, 2, "--sort"},
        {{"report", "--buckets=x", "x"}, 2, "--buckets"},
        {{"report", "--depth", "0", "x"}, 2, "--depth"},
        {{"report", "--sort", "luck", good}, 2, "cannot sort by luck"},
        {{"report", "--name", "(", good}, 2, "missing )"},
        {{"report", "--since", "yesterday", good}, 2, "--since yesterday: no time"},
        {{"report", "--min-time", "1e9", good}, 2, "no duration"},
        {{"report", "--json", "--csv", good}, 2, "at most 1"},
        {{"report", "--name", "nobody", good}, 3, "leave no path"},
        {{"report", "--pid", "1", good}, 3, "the filters leave nothing"},
        {{"report", empty}, 3, "no operations found"},
        {{"report", dir.write("cut.plog.txt", frame_start() + start(1, 1, "a"))}, 3, "no operations found"},
        {{"report", dir.file("none")}, 1, "none: No such file"},
        {{"counters", small}, 1, "5 bytes in place of 5800544"},
        {{"errors", dir.path()}, 1, "not a regular file"},
        {{"vars", "a", "b"}, 2, "b"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words));
        const tool_run result = run(c.words);
        EXPECT_EQ(result.status, c.status);
        EXPECT_THAT(result.err, HasSubstr(c.message));
        EXPECT_EQ(result.out, "");
    }
    const tool_run partly = run({"report", dir.file("none"), good});
    EXPECT_EQ(partly.status, 1) << "what can be read is shown all the same";
    EXPECT_THAT(partly.out, HasSubstr("a (1)"));
    const tool_run damaged = run({"report", good, dir.write("bad.txt", "x\n")});
    EXPECT_EQ(damaged.status, 5);
    EXPECT_THAT(damaged.err, HasSubstr("bad.txt: offset 0: neither"));
    EXPECT_THAT(damaged.out, HasSubstr("a (1)"));
}
