#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sqlite3.h>

#include "tool/report_figures.h"
#include "tool/tool_fixture.h"

using namespace tool_test;
using nlohmann::json;
using testing::HasSubstr;

namespace {

const std::string sample =
    block(start(1, 7, "a;b") + start(2, 0, "s\tql") + end("0.300000000", 3) + start(2, 7, "a;b", "prog", 1) +
          end("0.100000000", 2, "0,0.010000000") + end("0.400000000", 2));

// The first column of all rows, with commas between.
std::string ask(const std::string& database, const std::string& question)
{
    sqlite3* opened = nullptr;
    std::string answer;
    sqlite3_open(database.c_str(), &opened);
    const auto add = [](void* to, int, char** values, char**) {
        *static_cast<std::string*>(to) += std::string(values[0] != nullptr ? values[0] : "null") + ",";
        return 0;
    };
    EXPECT_EQ(sqlite3_exec(opened, question.c_str(), add, &answer, nullptr), SQLITE_OK)
        << sqlite3_errmsg(opened);
    sqlite3_close(opened);
    return answer;
}

} // namespace

TEST(ExportStacks, CarryTheTimeThatEachPathSpendsItself)
{
    const temp_dir dir;
    const std::string file = dir.write("a.plog.txt", sample);
    EXPECT_EQ(run({"export", "--collapsed", file}).out, "a:b (7) 100000000\na:b (7);s\\x09ql 300000000\n");
    EXPECT_EQ(run({"export", "--collapsed", "--weight=calls", file}).out, "a:b (7) 2\na:b (7);s\\x09ql 3\n");
    const auto scope = json::parse(run({"export", "--speedscope", "--by=thread", file}).out);
    EXPECT_EQ(scope.at("shared").at("frames").at(1).at("name"), "a:b (7)");
    EXPECT_EQ(scope.at("profiles").at(0).at("name"), "process 10 thread 77");
    EXPECT_EQ(scope.at("profiles").at(0).at("samples"), json::parse("[[1],[1,2]]"));
    EXPECT_EQ(scope.at("profiles").at(0).at("weights"), json::parse("[100000000,300000000]"));
    EXPECT_EQ(scope.at("profiles").at(0).at("endValue"), 400'000'000);
}

TEST(ExportRows, HoldEveryRecordWithItsPlace)
{
    const temp_dir dir;
    const std::string file = dir.write("a.plog.txt", sample);
    const std::string tsv = run({"export", "--tsv", "--host", "h", "--header", file}).out;
    EXPECT_EQ(std::count(tsv.begin(), tsv.end(), '\n'), 5); // header, call, bucket, outermost call, period
    EXPECT_EQ(std::count(tsv.begin(), tsv.end(), '\t'), 5 * 32);
    const std::string where =
        "\nh\t" + file + "\t" + std::to_string((frame_start() + start(1, 7, "a;b")).size());
    EXPECT_THAT(tsv, HasSubstr(where + "\t0\t" + std::to_string(frame_start().size()) + "\t2\t0\t"));
    EXPECT_THAT(
        tsv,
        HasSubstr("\ts\\\\x09ql\t0\ta.c\t12\tprog\t/part\t1\t3\t1\t2\t300000000\t100000000\t900000000\t"));
    EXPECT_EQ(run({"export", "--tsv", "--pid", "3", file}).status, 2);
    EXPECT_EQ(run({"export", "--tsv", "--collapsed", file}).status, 2);
}

TEST(ExportSqlite, AnswersAsTheReportDoes)
{
    const temp_dir dir;
    dir.write("a.plog.txt", sample + sample);
    dir.write("b.plog.txt", block(start(1, 7, "a;b") + end("0.000000001", 1, "0,0", 0)));
    const std::string database = dir.file("t.db");
    ASSERT_EQ(run({"export", "--sqlite", database, dir.path()}).status, 0);
    EXPECT_EQ(ask(database, figures_question), report_figures(dir.path(), ","));
    EXPECT_EQ(ask(database, "select sum(calls) from trace_buckets"), "4,");
    EXPECT_EQ(ask(database, "select path from trace_call_paths order by path"), "a;b,a;b > s\\x09ql,");
    EXPECT_EQ(ask(database, "select period_from_ns from trace_periods limit 1"), "1700000000000000000,");
}

TEST(ExportSqlite, LoadingAgainAddsOnlyWhatIsNew)
{
    const temp_dir dir;
    const std::string database = dir.file("t.db");
    const std::string big = block(start(1, 1, std::string(2'000, 'n')) + end("0.1", 1));
    const std::string file = dir.write("a.plog.txt", big);
    const auto load = [&](const std::string& path) { return run({"export", "--sqlite", database, path}); };
    EXPECT_THAT(load(file).err, HasSubstr(": 1 new rows of 1 file\n"));
    EXPECT_THAT(load(file).err, HasSubstr(": 0 new rows"));
    dir.write("a.plog.txt", big + big);
    EXPECT_THAT(load(file).err, HasSubstr(": 1 new rows")) << "it has grown";
    const std::string rotated = dir.file("a.60.plog.txt");
    std::filesystem::rename(file, rotated);
    EXPECT_THAT(load(rotated).err, HasSubstr(": 0 new rows")) << "it has a new name";
    dir.write("a.plog.txt", sample);
    EXPECT_THAT(load(file).err, HasSubstr(": 3 new rows")) << "the old name is another file's";
    dir.write("a.plog.txt", big);
    const tool_run refused = load(file);
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("another file was loaded under this name"));
    EXPECT_EQ(load(dir.write("bad.plog.txt", "x\n")).status, 5);
    EXPECT_EQ(run({"export", "--sqlite", dir.path(), file}).status, 1);
}
