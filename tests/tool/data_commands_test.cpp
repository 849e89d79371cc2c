#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "readers/data_file.h"
#include "tool/data_image.h"
#include "tool/tool_fixture.h"

using namespace ostrum_tool;
using testing::HasSubstr;
using tool_test::image_builder;
using tool_test::run;
using tool_test::run_with;

TEST(DataFileCommands, ShowTheTables)
{
    image_builder image;
    image.counter("", 0, 0, 0, 0).counter("search", 7, 12, 4, 2'000'000).error(37, "search", 5);
    image.variable("", "").variable("time_on", "3").metric(25, 99).word(352, 4711);
    const size_t counter = 368 + 656; // the second
    image.word(counter + 584, 3).word(counter + 600, 50).word(counter + 616, 1).word(counter + 632, 1000);
    image.word(counter + 640, 2000).word(counter + 648, 1);
    const size_t error = 3'309'960;
    image.word(error, 1).word(error + 8, 7).word(error + 272, 2).word(error + 280, 10);
    const temp_dir dir;
    const std::string path = dir.write("ostrum_data.dat", image.bytes());

    EXPECT_THAT(run({"counters", "--csv", path}).out,
                HasSubstr("\nsearch,7,3,dm,a.c,12,/part,1,4,1,50,2000000,500000,1000,2000\n"));
    EXPECT_THAT(run({"counters", path}).out, HasSubstr("2 live counters, last opened by process 4711\n"));
    EXPECT_THAT(run({"errors", "--csv", path}).out, HasSubstr("\n5,37,2,10,search,7,dm,1\n"));
    EXPECT_THAT(run({"vars", "--csv", path}).out, HasSubstr("\ntime_on,3\n"));
    EXPECT_THAT(run({"metrics", "--csv", path}).out, HasSubstr("\nfe_connects_error_total,99\n"));
    EXPECT_EQ(dir.read(path), image.bytes());
}

TEST(DataFileCommands, MergeSortAndCut)
{
    const temp_dir dir;
    const std::string path = dir.write("d.dat", image_builder()
                                                    .counter("search", 7, 12, 100, 5'000)
                                                    .counter("search", 7, 99, 10, 9'000)
                                                    .counter("read", 3, 12, 50, 100, "cm")
                                                    .error(37, "read", 5)
                                                    .error(38, "read", 9)
                                                    .error(37, "search", 1)
                                                    .variable("time_on", "3")
                                                    .metric(4, 77)
                                                    .locks()
                                                    .bytes());
    struct shown_case {
        std::vector<std::string> words;
        const char* rows; // behind the header
    };
    for (
        const shown_case& each : {
            shown_case{{"counters", "--csv", "--by", "operation"},
                       "search,7,,,,,,,110,0,0,14000,127,0,0\nread,3,,,,,,,50,0,0,100,2,0,0\n"},
            {{"counters", "--csv", "--by", "program,line", "--top", "1"},
             ",,,dm,,99,,,10,0,0,9000,900,0,0\n"},
            {{"counters", "--tsv", "--by", "program", "--sort", "program"},
             "\t\t\tcm\t\t\t\t\t50\t0\t0\t100\t2\t0\t0\n\t\t\tdm\t\t\t\t\t110\t0\t0\t14000\t127\t0\t0\n"},
            {{"counters", "--csv", "--sort", "calls", "--top", "1"},
             "search,7,0,dm,a.c,12,/part,0,100,0,0,5000,50,0,0\n"},
            {{"errors", "--csv", "--by", "error"}, "9,38,,,,,,\n6,37,,,,,,\n"},
            {{"errors", "--jsonl", "--by", "operation", "--top", "1"},
             R"({"count":14,"error":null,"class":null,"location":null,"name":"read","opcode":0,"program":null,"db":null})"
             "\n"},
            {{"counters", "--by", "db", "--top", "9"},
             "     db  calls  errors  records   total  average  user cpu  sys cpu\n"
             "-------  -----  ------  -------  ------  -------  --------  -------\n"
             "0.0.0.0    160       0        0  14.1us     88ns       0ns      0ns\n"},
            {{"vars", "--csv"}, "time_on,3\n"},
            {{"metrics", "--csv"}, "fe_connects_error_total,0\n"},
        }) {
        SCOPED_TRACE(testing::PrintToString(each.words));
        const auto plain = run_with(each.words, {path});
        EXPECT_THAT(plain.out, testing::EndsWith("\n" + std::string(each.rows))) << plain.err;
        EXPECT_EQ(run_with(each.words, {path, "--locked"}).out, plain.out);
    }
    EXPECT_THAT(run({"counters", "--by", "operation,db", "--top", "1", path}).out,
                HasSubstr("merged by operation, db: 2 rows\nthe first 1 of 2 by total_ns\n"));
    EXPECT_EQ(run({"errors", "--by", "type", path}).status, 2);
    EXPECT_EQ(run({"counters", "--sort", "nothing", path}).status, 2);
    EXPECT_EQ(run({"counters", "--locked", dir.write("short.dat", "x")}).status, 1);
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
