#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "readers/data_file.h"
#include "tool/data_image.h"
#include "tool/tool_fixture.h"

using namespace ostrum_tool;
using testing::HasSubstr;
using tool_test::image_builder;
using tool_test::run;

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

    EXPECT_THAT(run({"counters", "--csv", path}).out,
                HasSubstr("\nsearch,7,3,dm,a.c,12,/part,1,4,1,50,2000000,500000,1000,2000\n"));
    EXPECT_THAT(run({"counters", path}).out, HasSubstr("2 live counters, last opened by process 4711\n"));
    EXPECT_THAT(run({"errors", "--csv", path}).out, HasSubstr("\n5,37,2,10,search,7,dm,1\n"));
    EXPECT_THAT(run({"vars", "--csv", path}).out, HasSubstr("\ntime_on,3\n"));
    EXPECT_THAT(run({"metrics", "--csv", path}).out, HasSubstr("\nfe_connects_error_total,99\n"));
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
