#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tool/tool_fixture.h"

using namespace tool_test;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::string tree(const std::string& seconds, const std::string& elapsed, const std::string& rest)
{
    return "2025/11/15 13:15:" + seconds + "  " + std::string(15 - elapsed.size(), ' ') + elapsed + "  " +
           rest + "\n";
}

std::string opened(int level, const std::string& name)
{
    std::string indentation;
    for (int above = 1; above < level; ++above) {
        indentation += " |";
    }
    return "       0x0 " + indentation + " " + name + "(host.c[10] 0.0.0.1 /thing 42)";
}

std::string in(const std::string& name, int level, int seq, const std::string& seconds, int tid = 77)
{
    return "== IN[" + name + "] FLAGS[0x20] AT[2025/11/15 13:15:" + seconds + "] PID/TID[10/" +
           std::to_string(tid) + "] LVL/TOP/SEQ[" + std::to_string(level) + "/1/" + std::to_string(seq) +
           "] SRC[host.c, 10] CORRELATION_ID[h:1]\n";
}

std::string out(const std::string& name, int level, int seq, const std::string& seconds,
                const std::string& elapsed, const std::string& behind = "", int tid = 77)
{
    std::string line = in(name, level, seq, seconds, tid);
    line.replace(0, 6, "== OUT[");
    line.pop_back();
    return line + " TXN_CACHE[NO] ELAPSED[" + elapsed + "]" + behind + "\n";
}

// "B 50000.000 inner", "E 50001.000", with the thread behind where it is not 77.
std::vector<std::string> events_of(const json& timeline)
{
    std::vector<std::string> events;
    for (const auto& event : timeline.at("traceEvents")) {
        events.push_back(event.at("ph").get<std::string>() + " " + event.at("ts").dump() +
                         (event.contains("name") ? " " + event.at("name").get<std::string>() : "") +
                         (event.at("tid") == 77 ? "" : " @" + event.at("tid").dump()));
    }
    return events;
}

struct exported {
    tool_run run;
    std::vector<std::string> events;
    json all;
};

exported timeline_of(const std::string& text, const std::vector<std::string>& options = {})
{
    const temp_dir dir;
    tool_run run = run_with({"export", "--chrome", dir.write("10_77.1.2.flog.txt", text)}, options);
    if (run.out.empty()) {
        return {run, {}, {}};
    }
    const json all = json::parse(run.out);
    return {run, events_of(all), all};
}

} // namespace

TEST(Timeline, OfTreeLinesHasExactTimesAndSaysWhatIsNotRecorded)
{
    const exported made = timeline_of(tree("00.000000", "0.000000000", opened(1, "outer")) +
                                      tree("00.050000", "0.050000007", opened(2, "a")) +
                                      tree("00.060000", "0.060000000", opened(3, "deep")) +
                                      tree("00.060000", "0.060000001", "host.c            *TXN*") +
                                      tree("00.060000", "0.060000001", "host.c          ERROR[6]") +
                                      tree("00.070000", "0.070000000", opened(2, "b")) +
                                      tree("02.050000", "2.050000000", "host.c      ERROR[37]") +
                                      tree("02.050000", "2.050000000", "host.c      <opcode_end outer>") +
                                      tree("03.000000", "0.000000000", opened(1, "open")));
    EXPECT_EQ(made.run.status, 0) << made.run.err;
    EXPECT_THAT(made.events,
                ElementsAre("B 0.0 outer", "B 50000.007 a", "B 60000.0 deep", "E 60000.001", "E 70000.0",
                            "B 70000.0 b", "E 2050000.0", "E 2050000.0", "B 3000000.0 open"));
    const json& events = made.all.at("traceEvents");
    EXPECT_EQ(events.at(0).at("args"), json::parse(R"({"source": "host.c:10", "flags": "0x0"})"));
    EXPECT_EQ(events.at(3).at("args"), json::parse(R"({"cached": true, "error": 6})"));
    EXPECT_EQ(events.at(4).at("args").at("end"), "not recorded, at the latest here");
    EXPECT_EQ(events.at(7).at("args"), json::parse(R"({"error": 37})"));
    EXPECT_EQ(events.at(0).at("pid"), 10) << "from the file's name";
    EXPECT_EQ(made.all.at("otherData").at("base_ns").get<int64_t>() % 1'000'000'000, 0);
    EXPECT_THAT(made.run.out, HasSubstr("\"ts\":50000.007,"));
}

TEST(Timeline, OfBlocksHasTheirFieldLists)
{
    const exported made =
        timeline_of(in("outer", 1, 1, "00.000000") + "0 PIN_FLD <x> \x1b\n1 next\n" +
                    in("inner", 2, 2, "00.000001") + "NULL flist ptr\n" + in("other", 1, 1, "00.000001", 78) +
                    out("inner", 2, 2, "00.000002", "0.000000900") + "0 result\n" +
                    in("inner", 2, 3, "00.000001") + out("inner", 2, 3, "00.000003", "timing-disabled") +
                    out("outer", 1, 1, "00.000009", "0.000002000", " ERROR_STATUS[4][bad]") + "0 lost\n");
    EXPECT_EQ(made.run.status, 0) << made.run.err;
    EXPECT_THAT(made.events, ElementsAre("B 0.0 outer", "B 1.0 inner", "B 1.0 other @78", "E 1.9",
                                         "B 1.9 inner", "E 3.0", "E 3.0"))
        << "calls do not overlap, though their times are cut to microseconds";
    const json& events = made.all.at("traceEvents");
    EXPECT_EQ(events.at(0).at("args").at("input"), "0 PIN_FLD <x> \\x1B\n1 next\n");
    EXPECT_EQ(events.at(0).at("args").at("correlation"), "h:1");
    EXPECT_FALSE(events.at(1).at("args").contains("input"));
    EXPECT_EQ(events.at(3).at("args"), json::parse(R"({"output": "0 result\n"})"));
    EXPECT_EQ(events.at(6).at("args"),
              json::parse(R"({"error": 4, "error_text": "bad", "output": "0 lost\n"})"));
}

TEST(Timeline, KeyedContextsStandSideBySide)
{
    const exported made = timeline_of(in("x", 1, 1, "00.000000", 0) + in("y", 1, 7, "00.000001", 0) +
                                      out("x", 1, 1, "00.000002", "0.000002000", "", 0) +
                                      out("y", 1, 7, "00.000003", "0.000002000", "", 0));
    EXPECT_THAT(made.events, ElementsAre("b 0.0 x @0", "b 1.0 y @0", "e 2.0 x @0", "e 3.0 y @0"));
    EXPECT_EQ(made.all.at("traceEvents").at(2).at("id"), "1");
}

TEST(Timeline, WhatIsDamagedOrFilteredIsLeftOut)
{
    const std::string call = in("a", 1, 1, "00.000000") + out("a", 1, 1, "01.000000", "1.000000000");
    const std::string second =
        in("b", 1, 1, "05.000000", 78) + out("b", 1, 1, "06.000000", "1.000000000", "", 78);
    const struct {
        std::string text;
        std::vector<std::string> options;
        int status;
        size_t events;
        const char* told;
    } cases[] = {
        {"rubbish\n" + call, {}, 5, 2, "offset 0: neither a tree line nor a block"},
        {call + in("cut", 1, 2, "02.000000").substr(0, 60), {}, 5, 2, "an entry that is cut"},
        {in("a", 2'000, 1, "00.000000") + call, {}, 5, 2, "offset 0: a level that no call has"},
        {out("a", 1, 9, "00.000000", "1.000000000") + out("a", 0, 0, "00.000000", "timing-disabled") + call,
         {},
         0,
         2,
         "2 ends of calls without their begin are left out"},
        {tree("00.000000", "0.000000000", "host.c      <opcode_end outer>") + call,
         {},
         0,
         2,
         "1 ends of calls"},
        {call + second, {"--tid=78"}, 0, 2, ""},
        {call + second, {"--since=2025-11-15 13:15:03"}, 0, 2, ""},
        {call + second, {"--until=2025-11-15 13:15:03", "--pid=10"}, 0, 2, ""},
        {call, {"--pid=11"}, 3, 0, "no calls found"},
        {"", {}, 3, 0, "no calls found"},
        {call, {"--depth=2"}, 2, 0, "of the filters --chrome takes"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text + testing::PrintToString(c.options));
        const exported made = timeline_of(c.text, c.options);
        EXPECT_EQ(made.run.status, c.status);
        EXPECT_EQ(made.events.size(), c.events);
        EXPECT_THAT(made.run.err, HasSubstr(c.told));
    }
    const temp_dir dir;
    dir.write("10_77.1.2.flog.txt", call);
    dir.write("11_5.1.2.flog.txt", tree("00.000000", "0.000000000", opened(1, "earlier")));
    EXPECT_THAT(events_of(json::parse(run({"export", "--chrome", dir.path()}).out)),
                ElementsAre("B 0.0 a", "E 1000000.0", "B 0.0 earlier @5"));
    EXPECT_EQ(run({"export", "--chrome", dir.file("none")}).status, 1);
}
