#include <clocale>
#include <cstdlib>
#include <cwchar>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "readers/data_file.h"
#include "tool/data_image.h"
#include "tool/tool_fixture.h"
#include "top/screen_text.h"

using namespace ostrum_tool;
using testing::ElementsAre;
using testing::HasSubstr;
using tool_test::image_builder;
using tool_test::run;
using tool_test::run_with;

namespace {

constexpr int64_t second_tv = 1'000'000'000;

look look_of(const image_builder& image, int64_t at_tv)
{
    const std::string& bytes = image.bytes();
    return {decode_data_file({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()}), at_tv,
            at_tv};
}

std::vector<std::string> column_of(const pane_content& content, const std::string& title)
{
    std::vector<std::string> texts;
    for (size_t at = 0; at < content.columns.size(); ++at) {
        for (const auto& row : content.rows) {
            if (content.columns[at].title == title) {
                texts.push_back(cell_text(row[at], content.columns[at].kind));
            }
        }
    }
    return texts;
}

// Two looks, two seconds apart.
class TopPanes : public testing::Test {
protected:
    const look before = look_of(image_builder()
                                    .counter("search", 7, 12, 100, second_tv)
                                    .counter("read", 3, 12, 50, second_tv)
                                    .counter("write", 5, 1, 9, second_tv)
                                    .error(37, "read", 5)
                                    .metric(4, 1'000)
                                    .variable("time_on", "3"),
                                0);
    const look now = look_of(image_builder()
                                 .counter("search", 7, 12, 110, 2 * second_tv)
                                 .counter("read", 3, 12, 4, 500'000'000) // was reset in between
                                 .counter("write", 5, 1, 9, second_tv)
                                 .counter("search", 7, 99, 2, second_tv) // new
                                 .error(37, "read", 9)
                                 .metric(4, 400)
                                 .variable("time_on", "3"),
                             2 * second_tv);
    const comparison compared{&before, now};
};

} // namespace

TEST_F(TopPanes, ShowWhatTotalsHaveGained)
{
    const pane_content counters = build_pane(pane_kind::counters, compared, 0);
    EXPECT_THAT(column_of(counters, "calls"), ElementsAre("10", "4", "0", "2"));
    EXPECT_THAT(column_of(counters, "calls/s"), ElementsAre("5.000", "2.000", "0.000", "1.000"));
    EXPECT_THAT(column_of(counters, "busy"), ElementsAre("50.0%", "25.0%", "0.0%", "50.0%"));
    EXPECT_THAT(column_of(counters, "average"), ElementsAre("100ms", "125ms", "-", "500ms"));
    EXPECT_THAT(column_of(counters, "all calls"), ElementsAre("110", "4", "9", "2"));
    EXPECT_THAT(column_of(build_pane(pane_kind::errors, compared, 0), "count"), ElementsAre("4"));
    EXPECT_EQ(column_of(build_pane(pane_kind::metrics, compared, 0), "change/s")[4], "-300.000");

    const pane_content since_reset = build_pane(pane_kind::counters, {nullptr, now}, 0);
    EXPECT_THAT(column_of(since_reset, "calls"), ElementsAre("110", "4", "9", "2"));
    EXPECT_EQ(column_of(since_reset, "calls/s")[0], "-") << "nobody knows when that was";

    const pane_content grouped =
        build_pane(pane_kind::counters, compared, counter_fields("--by", {"operation"}));
    EXPECT_THAT(column_of(grouped, "operation"), ElementsAre("search (7)", "read (3)", "write (5)"));
    EXPECT_THAT(column_of(grouped, "calls"), ElementsAre("12", "4", "0"));
    EXPECT_THAT(column_of(grouped, "program"), ElementsAre()) << "merged away";
    top_view view;
    const auto by_program = build_pane(pane_kind::counters, compared, counter_fields("--by", {"program"}));
    const auto lines = compose_screen(view, {"f", "h", "", compared}, by_program, {24, 80}, true);
    EXPECT_THAT(lines[4].text, testing::StartsWith("program  "));
    EXPECT_THAT(lines[5].text, testing::StartsWith("dm  "));
}

TEST_F(TopPanes, AreSortedAndFiltered)
{
    const auto operations = [&](const arrangement& wanted) {
        pane_content content = build_pane(pane_kind::counters, compared, 0);
        arrange(content, wanted);
        return column_of(content, "operation");
    };
    EXPECT_THAT(operations({3, true, "", false}),
                ElementsAre("search (7)", "read (3)", "search (7)", "write (5)"));
    EXPECT_THAT(operations({0, false, "^(READ|write)", false}), ElementsAre("read (3)", "write (5)"));
    EXPECT_THAT(operations({0, false, "", true}), ElementsAre("read (3)", "search (7)", "search (7)"));
    EXPECT_TRUE(pattern_problem("(").has_value());
}

TEST_F(TopPanes, FitScreensOfEverySize)
{
    const char* const locale = std::setlocale(LC_CTYPE, "C.UTF-8");
    ASSERT_NE(locale, nullptr);
    top_view view;
    image_builder wild;
    wild.counter("bad\x1b[2J\x07\xc3\xa9", 1, 1, 5, 5)
        .counter("\xe6\xa4\x9c\xe7\xb4\xa2 e\xcc\x81", 2, 1, 5, 5);
    const look looked = look_of(wild, 1);
    const comparison all{nullptr, looked};
    for (const size_t columns : {1U, 7U, 8U, 20U, 80U, 300U}) {
        for (const size_t rows : {1U, 3U, 7U, 24U}) {
            for (const int form : {0, 1, 2, 3}) {
                SCOPED_TRACE(std::to_string(columns) + "x" + std::to_string(rows));
                view.shows_help = (form & 1) != 0;
                const bool ascii = (form & 2) != 0;
                const auto lines = compose_screen(view, {"f", "h", "", all}, build_pane(view.pane, all, 0),
                                                  {rows, columns}, ascii);
                for (const screen_line& line : lines) {
                    wchar_t wide[512];
                    const size_t characters = std::mbstowcs(wide, line.text.c_str(), 512);
                    EXPECT_EQ(wcswidth(wide, characters), static_cast<int>(columns)) << line.text;
                    EXPECT_TRUE(!ascii || characters == line.text.size());
                }
            }
        }
    }
    std::setlocale(LC_CTYPE, "C");
    view.shows_help = false;
    const auto lines =
        compose_screen(view, {"f", "h", "gone", all}, build_pane(view.pane, all, 0), {24, 120}, true);
    EXPECT_THAT(lines[1].text, HasSubstr("counters 2 of 4096 (0%)   errors 0 of 8192 (0%)"));
    EXPECT_THAT(lines[3].text, HasSubstr("gone"));
    EXPECT_THAT(lines[5].text, HasSubstr("bad\\x1B[2J\\x07\\xC3\\xA9 ("));
}

TEST(TopKeys, ChangeTheView)
{
    const std::vector<column> columns{{"a", "a", cell_kind::text}, {"b", ""}, {"c", "c"}, {"d", "d"}};
    top_view view;
    view.shown().order.sort_column = 2;
    const auto press = [&](const std::string& keys) {
        key_effect effect = key_effect::show;
        for (const char c : keys) {
            effect = handle_key(view, c == '\n' ? key_press{key::enter, ""} : key_press{key::character, {c}},
                                {columns, 100, 10});
        }
        return effect;
    };
    press(">>");
    EXPECT_EQ(view.shown().order.sort_column, 0U);
    press("<");
    EXPECT_EQ(view.shown().order.sort_column, 3U);
    press(">>");
    EXPECT_EQ(view.shown().order.sort_column, 2U) << "a column that is not shown is passed over";
    handle_key(view, {key::end, ""}, {columns, 100, 10});
    handle_key(view, {key::down, ""}, {columns, 100, 10});
    EXPECT_EQ(view.shown().first_row, 90U);
    press("goperation, db\n");
    EXPECT_EQ(view.shown().kept, counter_fields("", {"operation", "db"}));
    press("gnonsense\n");
    EXPECT_THAT(view.message, HasSubstr("no key field"));
    press("/(\n");
    EXPECT_THAT(view.message, HasSubstr("filter: "));
    press("/q?1\n2");
    EXPECT_EQ(view.panes[0].order.pattern, "q?1") << "keys are text while a line is typed";
    EXPECT_EQ(view.pane, pane_kind::errors);
    press("d250ms\n");
    EXPECT_EQ(view.interval_tv, 250'000'000);
    press("?q");
    EXPECT_FALSE(view.shows_help) << "any key leaves the help, and does nothing else";
    EXPECT_EQ(press("z"), key_effect::mark);
    EXPECT_EQ(view.span, span_kind::mark);
    EXPECT_EQ(press(" "), key_effect::look);
    EXPECT_EQ(press("q"), key_effect::leave);
}

TEST(TopBatch, PrintsATableForEachInterval)
{
    const temp_dir dir;
    const std::string file =
        dir.write("d.dat", image_builder().counter("a", 1, 1, 5, 9).counter("b", 2, 1, 7, 8).bytes());
    const auto top = [&](const std::vector<std::string>& more) {
        return run_with({"top", "-b", "-d", "10ms", file}, more);
    };
    const auto csv = top({"-n", "2", "--csv", "--sort", "name", "--top", "1"});
    EXPECT_EQ(std::count(csv.out.begin(), csv.out.end(), '\n'), 3) << "one header, a row each";
    EXPECT_THAT(csv.out, HasSubstr(",a,1,0.000,0,0.000,"));
    EXPECT_THAT(top({"-n", "1"}).out, HasSubstr("counters 2 of 4096 (0%)"));
    EXPECT_THAT(top({"-n", "1", "--json"}).out,
                HasSubstr("\"kind\":\"top\",\"pane\":\"counters\",\"time_ns\":"));
    EXPECT_EQ(top({"-n", "1", "--sort", "nothing"}).status, 2);
    EXPECT_EQ(top({"-n", "1", "--by", "nothing"}).status, 2);
    EXPECT_EQ(run({"top", "-b", dir.file("absent")}).status, 1);
}
