#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/texts.h"
#include "tool/tool_fixture.h"

using namespace tool_test;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

namespace {

// a: 1 s, of which b takes 0.4 s and c 0.1 s. p lasted 0.5 s by its own record, what it called 2 s.
const std::string sample =
    block(start(1, 1, "a") + start(2, 2, "b") + end("0.400000000", 4) + start(2, 3, "c") +
          end("0.100000000", 1) + end("1.000000000", 10)) +
    block(start(1, 5, "p") + start(2, 6, "q") + end("2.000000000", 1) + end("0.500000000", 1));

json data_of(const std::string& page)
{
    const std::string mark = "id=\"flame-data\">";
    const size_t begin = page.find(mark) + mark.size();
    return json::parse(page.substr(begin, page.find("</script>", begin) - begin));
}

std::vector<std::string> labels_of(const json& data)
{
    std::vector<std::string> labels;
    for (const auto& number : data.at("frames").at("label")) {
        labels.push_back(data.at("labels").at(number.get<size_t>()));
    }
    return labels;
}

} // namespace

TEST(FlamePage, HoldsEachPathUnderItsCallerWithItsTime)
{
    const temp_dir dir;
    const tool_run made = run({"flame", dir.write("a.plog.txt", sample)});
    ASSERT_EQ(made.status, 0) << made.err;
    const json data = data_of(made.out);
    const json& frames = data.at("frames");
    EXPECT_THAT(labels_of(data), testing::ElementsAre("all", "p (5)", "q (6)", "a (1)", "b (2)", "c (3)"));
    EXPECT_EQ(frames.at("parent"), json::parse("[0,0,1,0,3,3]"));
    EXPECT_EQ(frames.at("width"),
              json::parse("[3000000000,2000000000,2000000000,1000000000,400000000,100000000]"))
        << "what is called is never wider than its caller";
    EXPECT_EQ(frames.at("total").at(1), 500'000'000);
    EXPECT_EQ(frames.at("self"), json::parse("[0,0,2000000000,500000000,400000000,100000000]"));
    EXPECT_EQ(data.at("details").at(frames.at("detail").at(3).get<size_t>()),
              "prog, a.c:12, /part, db 0.0.0.1");
    EXPECT_THAT(data.at("about"), HasSubstr("1 file, 1 process, 1 thread, 2 flushes"));
}

TEST(FlamePage, TakesTheFiltersOfTheReportAndTheWidestFrames)
{
    const temp_dir dir;
    const std::string file = dir.write("a.plog.txt", sample);
    const struct {
        std::vector<std::string> options, labels;
    } cases[] = {{{"--depth=1"}, {"all", "p (5)", "a (1)"}},
                 {{"--name=^b$"}, {"all", "a (1)", "b (2)"}},
                 {{"--min-time=300ms", "--opcode=1"}, {"all", "a (1)", "b (2)"}},
                 {{"--by=thread", "--depth=2", "--opcode=5"}, {"all", "process 10 thread 77", "p (5)"}},
                 {{"--max-frames=3"}, {"all", "p (5)", "q (6)", "a (1)"}},
                 {{"--max-frames=1"}, {"all", "p (5)"}}}; // q is as wide
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.options));
        EXPECT_EQ(labels_of(data_of(run_with({"flame", file}, c.options).out)), c.labels);
    }
    const tool_run cut = run({"flame", "--max-frames=3", file});
    EXPECT_THAT(cut.err, HasSubstr("the 2 paths with least time are left out"));
    EXPECT_THAT(data_of(cut.out).at("about"), HasSubstr("the 2 paths with least time are left out"));
}

TEST(FlamePage, NamesStayTextAndNothingComesFromElsewhere)
{
    const temp_dir dir;
    const std::string hostile = "</script><script>x</script><!--\x1b\xFF\"'&\xEF\xBF\xBF";
    const std::string plain = run({"flame", dir.write("a", sample)}).out;
    const std::string file = dir.write("b", block(start(1, 1, hostile, hostile) + end("0.1", 1)));
    const std::string page = run({"flame", "--title", hostile, file}).out;
    EXPECT_EQ(count_of(page, "</script"), count_of(plain, "</script"));
    EXPECT_EQ(count_of(page, "<!--"), count_of(plain, "<!--"));
    EXPECT_EQ(labels_of(data_of(page)).at(1),
              "</script><script>x</script><!--\\x1B\\xFF\"'&\xEF\xBF\xBF (1)");
    for (const char* const reference : {" src=", " href=", "url(", "@import", "fetch(", "XMLHttpRequest"}) {
        EXPECT_THAT(plain, Not(HasSubstr(reference)));
    }
    const std::string picture = run({"flame", "--svg", "--title", hostile, file}).out;
    EXPECT_THAT(picture,
                HasSubstr("<title>&lt;/script&gt;&lt;script&gt;x&lt;/script&gt;&lt;!--\\x1B\\xFF&quot;'"
                          "&amp;\xEF\xBF\xBD (1) - "));
    EXPECT_THAT(picture, Not(HasSubstr("<script")));
}

TEST(FlamePage, AComparisonKnowsBothSidesOfEachPath)
{
    const temp_dir dir;
    const std::string before =
        dir.write("before", block(start(1, 1, "a") + start(2, 2, "b") + end("0.1", 2) + end("1.0", 10) +
                                  start(1, 9, "same") + end("0.3", 1)));
    const std::string after =
        dir.write("after", block(start(1, 1, "a", "prog2") + start(2, 3, "c") + end("0.2", 2) +
                                 end("2.4", 20) + start(1, 9, "same") + end("0.3", 1)));
    const json data = data_of(run({"flame", after, "--diff", before}).out);
    const json& frames = data.at("frames");
    EXPECT_THAT(labels_of(data), testing::ElementsAre("all", "a (1)", "c (3)", "b (2)", "same (9)"));
    EXPECT_EQ(frames.at("width"), json::parse("[2700000000,2400000000,200000000,0,300000000]"));
    EXPECT_EQ(frames.at("width_before"), json::parse("[1300000000,1000000000,0,100000000,300000000]"));
    EXPECT_EQ(frames.at("percent"), json::parse("[null,20.0,null,null,0.0]")) << "of the average";
    EXPECT_EQ(frames.at("state"), json::parse("[0,0,1,2,0]"));
    EXPECT_EQ(frames.at("step"), json::parse("[4,7,8,0,4]"));
    EXPECT_EQ(data_of(run({"flame", after, "--diff", before, "--metric=total"}).out)
                  .at("frames")
                  .at("percent")
                  .at(1),
              140.0);
    EXPECT_THAT(labels_of(data_of(run({"flame", after, "--diff", before, "--full"}).out)),
                testing::Contains("a (1) [prog2]"));
    const std::string picture = run({"flame", "--svg", "--width=both", after, "--diff", before}).out;
    EXPECT_THAT(picture, HasSubstr("average +20.0%\nafter: 2.40s in 20 calls, 120ms on average"));
    EXPECT_THAT(picture, HasSubstr("gone\nafter: -\nbefore: 100ms in 2 calls"));
}

TEST(FlameSvg, LaysCalleesUponTheirCallers)
{
    const temp_dir dir;
    const std::string file = dir.write("a.plog.txt", sample);
    const std::string flame = run({"flame", "--svg", file}).out;
    const std::string icicle = run({"flame", "--svg", "--icicle", file}).out;
    // 3 s are 1,180 units; p is first, a behind it, and on a its callees.
    EXPECT_THAT(flame, HasSubstr("<rect x=\"10.00\" y=\"88\" width=\"1180.00\" height=\"18\""));
    EXPECT_THAT(flame, HasSubstr("<rect x=\"796.67\" y=\"70\" width=\"393.33\" height=\"18\""));
    EXPECT_THAT(flame, HasSubstr("<rect x=\"796.67\" y=\"52\" width=\"157.33\" height=\"18\""));
    EXPECT_THAT(flame, HasSubstr("<rect x=\"954.00\" y=\"52\" width=\"39.33\" height=\"18\""));
    EXPECT_THAT(icicle, HasSubstr("<rect x=\"796.67\" y=\"88\" width=\"157.33\" height=\"18\""));
    EXPECT_THAT(flame,
                HasSubstr("<title>b (2) - prog, a.c:12, /part, db 0.0.0.1\n13.3% of all, 400ms in 4 calls,"));
}

TEST(FlameCommand, TellsWhatItCannotShow)
{
    const temp_dir dir;
    const std::string file = dir.write("a.plog.txt", sample);
    const struct {
        std::vector<std::string> words;
        int status;
    } cases[] = {{{file, "--width=both"}, 2},
                 {{file, "--palette=loud"}, 2},
                 {{file, "--metric=luck", "--diff", file}, 2},
                 {{file, "--name=nobody"}, 3},
                 {{dir.write("idle", block(start(1, 1, "a") + end("0", 1)))}, 3}, // no time at all
                 {{file, "-o", dir.path()}, 1},
                 {{file, "--diff", dir.file("none")}, 1},
                 {{dir.write("cut", sample + "S,1,0\n"), "-o", dir.file("cut.html")}, 5}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.words));
        const tool_run made = run_with({"flame"}, c.words);
        EXPECT_EQ(made.status, c.status) << made.err;
        EXPECT_EQ(made.out, "");
        EXPECT_NE(made.err, "");
    }
    EXPECT_EQ(labels_of(data_of(temp_dir::read(dir.file("cut.html")))).size(), 6)
        << "what could be read is shown";
    EXPECT_EQ(run({"flame", file}, {.terminal = true}).status, 2);
}
