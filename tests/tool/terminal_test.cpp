// What needs a terminal: the live view, and questions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tool/data_image.h"
#include "tool/pseudo_terminal.h"
#include "tool/tool_fixture.h"

using testing::HasSubstr;
using testing::Not;
using tool_test::image_builder;
using tool_test::pseudo_terminal;

namespace {

image_builder two_counters(uint64_t calls)
{
    image_builder image;
    image.counter("search\x1b[31m", 7, 12, calls, 1'000).counter("read", 3, 12, 50, 9).error(37, "boom", 5);
    return image;
}

constexpr const char* leaves_screen = "\x1b[?1049l";

} // namespace

TEST(LiveTop, ShowsTheFileAndGivesTheTerminalBack)
{
    const temp_dir dir;
    const std::string file = dir.write("d.dat", two_counters(100).bytes());
    for (const int signal : {0, SIGINT, SIGTERM}) {
        SCOPED_TRACE(signal);
        pseudo_terminal terminal({"top", "-d", "100ms", file}, "xterm");
        EXPECT_TRUE(terminal.shows("counters 2 of 4096 (0%)"));
        EXPECT_TRUE(terminal.shows("search\\x1B[31m"));
        EXPECT_FALSE(terminal.is_as_before());
        signal == 0 ? terminal.type("q") : terminal.send(signal);
        EXPECT_EQ(terminal.wait(), 0);
        EXPECT_THAT(terminal.raw(), HasSubstr(leaves_screen));
        EXPECT_THAT(terminal.raw(), Not(HasSubstr("\x1b[31m")));
        EXPECT_TRUE(terminal.is_as_before());
    }
}

TEST(LiveTop, HeedsKeysAndSizesAndAFileThatGoes)
{
    const temp_dir dir;
    const std::string file = dir.write("d.dat", two_counters(100).bytes());
    pseudo_terminal terminal({"top", "-d", "100ms", file}, "xterm");
    ASSERT_TRUE(terminal.shows("search"));
    terminal.type("2");
    EXPECT_TRUE(terminal.shows("boom"));
    terminal.type("1/rea\r");
    EXPECT_TRUE(terminal.shows("only /rea/"));
    terminal.type("?");
    EXPECT_TRUE(terminal.shows("any key leaves this page"));
    terminal.type("x");
    terminal.resize(10, 40);
    EXPECT_TRUE(terminal.shows("read (3)"));
    terminal.resize(24, 100);
    std::filesystem::remove(file);
    EXPECT_TRUE(terminal.shows("No such file")) << "the last figures stay";
    dir.write("d.dat", two_counters(200).bytes());
    EXPECT_TRUE(terminal.shows("sorted by"));
    terminal.type("q");
    EXPECT_EQ(terminal.wait(), 0);
}

TEST(LiveTop, EndsWithItsTerminal)
{
    const temp_dir dir;
    const std::string file = dir.write("d.dat", two_counters(100).bytes());
    for (const bool controls : {true, false}) {
        SCOPED_TRACE(controls);
        pseudo_terminal terminal({"top", "-d", "100ms", file}, "xterm", "C.UTF-8", controls);
        ASSERT_TRUE(terminal.shows("search"));
        terminal.hang_up();
        EXPECT_TRUE(terminal.ends_within(std::chrono::seconds(10)));
    }
}

TEST(LiveTop, SaysWhereItCannotDraw)
{
    const temp_dir dir;
    const std::string file = dir.write("d.dat", two_counters(100).bytes());
    pseudo_terminal dumb({"top", file}, "dumb");
    EXPECT_TRUE(dumb.shows("use top -b"));
    EXPECT_EQ(dumb.wait(), 2);
    EXPECT_TRUE(dumb.is_as_before());
    pseudo_terminal plain({"top", file}, "xterm", "C");
    EXPECT_TRUE(plain.shows("search"));
    plain.type("q");
    EXPECT_EQ(plain.wait(), 0);
}

TEST(Changes, AreAskedForOnATerminal)
{
    const temp_dir dir;
    const std::string file = dir.write("d.dat", image_builder().locks().variable("time_on", "1").bytes());
    const std::string untouched = dir.read(file);
    pseudo_terminal no({"vars", "set", "time_on", "3", file}, "xterm");
    EXPECT_TRUE(no.shows("do it? [y/N]"));
    no.type("n\r");
    EXPECT_TRUE(no.shows("nothing was changed"));
    EXPECT_EQ(no.wait(), 1);
    EXPECT_EQ(dir.read(file), untouched);
    pseudo_terminal yes({"vars", "set", "--wait", "0", "time_on", "3", file}, "xterm");
    EXPECT_TRUE(yes.shows("do it? [y/N]"));
    yes.type("y\r");
    EXPECT_EQ(yes.wait(), 0);
    EXPECT_THAT(tool_test::run({"vars", "--csv", file}).out, HasSubstr("\ntime_on,3\n"));
}
