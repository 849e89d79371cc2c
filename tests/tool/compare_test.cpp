#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tool/data_image.h"
#include "tool/tool_fixture.h"

using namespace tool_test;
using testing::HasSubstr;

namespace {

// Before: a 100 ms a call, with b below it; after: a 120 ms, c in place of b.
struct two_builds {
    temp_dir dir;
    std::string before = dir.write("before", block(start(1, 1, "a") + start(2, 2, "b") +
                                                   end("0.100000000", 2) + end("1.000000000", 10)));
    std::string after = dir.write("after", block(start(1, 1, "a", "prog") + start(2, 3, "c") +
                                                 end("0.100000000", 2) + end("2.400000000", 20)));
};

} // namespace

TEST(DiffCommand, TellsChangesAndWhatIsNewOrGone)
{
    const two_builds builds;
    const tool_run shown = run({"diff", builds.before, builds.after});
    EXPECT_EQ(shown.status, 0) << shown.err;
    EXPECT_EQ(shown.out,
              R"(operation  state  calls A  calls B  total A  total B  average A  average B   change  percent
---------  -----  -------  -------  -------  -------  ---------  ---------  -------  -------
a (1)                  10       20    1.00s    2.40s      100ms      120ms  +20.0ms   +20.0%
  b (2)    gone         2        -    100ms        -     50.0ms          -  -50.0ms        -
  c (3)    new          -        2        -    100ms          -     50.0ms  +50.0ms        -
)");
    const auto rows =
        nlohmann::json::parse(run({"diff", "--json", "--metric=total", builds.before, builds.after}).out)
            .at("rows");
    EXPECT_EQ(rows.at(0).at("change_ns"), 1'400'000'000);
    EXPECT_EQ(rows.at(0).at("change_percent"), 140.0);
    EXPECT_EQ(rows.at(1).at("average_b_ns"), nullptr);
}

TEST(DiffCommand, ASlowDownBeyondTheLimitHasAStatusOfItsOwn)
{
    const two_builds builds;
    const struct {
        std::vector<std::string> options;
        int status;
    } cases[] = {
        {{"--fail-over", "19.9%"}, 4},
        {{"--fail-over", "20"}, 0}, // more than, not as much as
        {{"--fail-over", "1%", "--min-change", "21ms"}, 0},
        {{"--fail-over", "1%", "--name", "^b$", "--depth", "2"}, 4}, // what stands above it is shown too
        {{"--fail-over", "99%", "--metric", "calls"}, 4},
        {{"--fail-over", "ten"}, 2},
        {{"--metric", "luck"}, 2},
        {{"--name", "nobody"}, 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.options));
        const tool_run shown = run_with({"diff", builds.before, builds.after}, c.options);
        EXPECT_EQ(shown.status, c.status) << shown.err;
        EXPECT_EQ(shown.err.empty(), c.status == 0);
    }
    EXPECT_THAT(run({"diff", "--fail-over=5%", builds.before, builds.after}).err,
                HasSubstr("1 paths are up by more than 5% in average; most: a (1), +20.0%"));
    EXPECT_EQ(run({"diff", builds.before, builds.dir.file("none")}).status, 1);
}

TEST(CheckCommand, SaysWhatIsDamagedAndWhere)
{
    const temp_dir dir;
    const std::string good = block(start(1, 1, "a") + end("0.001000000", 1));
    const std::string tree_line =
        "2025/11/15 13:15:00.000000      0.000000000       0x100  op_search(host.c[10] 0.0.0.1 /thing 42)\n";
    const std::string image = image_builder().bytes();
    const std::string bad_image = image_builder()
                                      .counter(std::string(128, 'n'), 1, 1, 1, 1) // without an end
                                      .word(2'687'344, 65'536)
                                      .variable("v", "")
                                      .variable("v", "")
                                      .bytes();
    image_builder full;
    full.counter("a", 1, ~0ULL, 1, 1).error(1, "a", 1);
    const std::string full_image = full.bytes();
    constexpr uint64_t wide = 1ULL << 32U; // in place of numbers of 32 bits
    full.word(368 + 584, wide).word(368 + 592, wide);
    full.word(3'309'960 + 272, wide).word(3'309'960 + 280, wide);
    const std::string wide_image = full.bytes();
    const struct {
        const char* name;
        std::string text, kind, state, damage;
    } cases[] = {
        {"a.plog.txt", good, "trace data", "ok", ""},
        {"any name", good + good.substr(0, 200), "trace data", "damaged",
         "offset " + std::to_string(good.size())},
        {"b.plog.txt", "", "trace data", "empty", ""},
        {"b.flog.txt", tree_line, "field-list trace", "ok", ""},
        {"c.flog.txt", tree_line + "rubbish\n" + tree_line.substr(0, 60), "field-list trace", "damaged",
         "offset " + std::to_string(tree_line.size()) + ": neither a tree line"},
        {"d.dat", image, "data file", "ok", ""},
        {"e.dat", image.substr(0, 1000), "data file", "damaged", "has 1000 bytes in place of 5800544"},
        {"f.dat", bad_image, "data file", "damaged", "offset 2687344: claims 65536 counters, of 4096"},
        {"g.dat", bad_image, "data file", "damaged", "offset 432: counters entry 0: text without an end"},
        {"h.dat", bad_image, "data file", "damaged", "variables entry 1: the same name as entry 0"},
        {"j.dat", full_image, "data file", "ok", ""}, // its line is -1
        {"k.dat", wide_image, "data file", "damaged", "offset 952: counters entry 0: number beyond 32 bits"},
        {"l.dat", wide_image, "data file", "damaged", "offset 960: counters"},
        {"m.dat", wide_image, "data file", "damaged", "offset 3310232: errors"},
        {"n.dat", wide_image, "data file", "damaged", "offset 3310240: errors"},
        {"i",
         std::string("\x7F"
                     "ELF\0\0",
                     6),
         "unknown", "damaged", "no file of this library"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string file = dir.write(c.name, c.text);
        const tool_run shown = run({"check", file});
        EXPECT_EQ(shown.status, c.state == "damaged" ? 5 : 0);
        EXPECT_THAT(shown.out, HasSubstr(c.kind));
        EXPECT_THAT(shown.out, HasSubstr("  " + c.state + "\n"));
        EXPECT_THAT(shown.out, HasSubstr(c.damage));
        EXPECT_EQ(run({"check", "-q", file}).out.empty(), c.state == "ok");
    }
    EXPECT_EQ(run({"check", dir.file("none")}).status, 1);
    EXPECT_THAT(run({"check", "--json", dir.path()}).out, HasSubstr("b.flog.txt"));
}
