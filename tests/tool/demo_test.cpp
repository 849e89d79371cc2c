// "ostrum demo": the whole program on the sample server of this build, and what is said when it cannot run.
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tool/tool_fixture.h"

using testing::HasSubstr;
using tool_test::run;

namespace {

// The sum over the rows of a table.
int64_t sum_of(const std::vector<std::string>& words, const char* key)
{
    const auto shown = nlohmann::json::parse(run(words).out);
    int64_t sum = 0;
    for (const auto& row : shown.at("rows")) {
        sum += row.at(key).get<int64_t>();
    }
    return sum;
}

void write_program(const temp_dir& dir, const char* name, const char* text)
{
    std::filesystem::permissions(dir.write(name, text), std::filesystem::perms::owner_all);
}

} // namespace

TEST(Demo, RunsTheSampleServerAndShowsWhatItWrote)
{
    const temp_dir dir;
    const std::string place = dir.file("new/run");
    setenv("OSTRUM_VAR_TIME", "nonsense", 1);
    const auto shown = run({"demo", "--programs", SAMPLE_PROGRAMS, place});
    unsetenv("OSTRUM_VAR_TIME");
    ASSERT_EQ(shown.status, 0) << shown.err << dir.read(place + "/server.log");
    const std::string data = place + "/ostrum_data.dat";
    EXPECT_THAT(shown.out, HasSubstr("$ ostrum report --brief --depth 2 " + place + "/trace\n"));
    EXPECT_THAT(shown.out, HasSubstr(run({"counters", "--by", "operation", data}).out));
    EXPECT_EQ(run({"check", "-q", place + "/trace", data}).status, 0);
    const int64_t calls = sum_of({"counters", "--json", data}, "calls");
    EXPECT_GT(calls, 1'000);
    EXPECT_GT(sum_of({"report", "--flat", "--json", place + "/trace"}, "calls"), calls)
        << "outermost calls and nested ones";
    EXPECT_EQ(run({"demo", "--programs", SAMPLE_PROGRAMS, place}).status, 1) << "it is not fresh any more";
}

TEST(Demo, SaysWhatItLacks)
{
    const temp_dir dir;
    const auto absent = run({"demo", "--programs", dir.path()});
    EXPECT_EQ(absent.status, 1);
    EXPECT_THAT(absent.err, HasSubstr("ostrum: the sample programs are not in " + dir.path() + ": "));

    std::filesystem::copy(SAMPLE_PROGRAMS "/catalog_data", dir.file("catalog_data"));
    write_program(dir, "catalog_client", "#!/bin/sh\nexit 1\n");
    for (const auto& [server, says] :
         {std::pair("#!/bin/sh\necho no\nexit 3\n", "the sample server did not get ready"),
          std::pair("#!/bin/sh\ntouch catalog.port\nexec sleep 60\n",
                    "a client was not served as it should")}) {
        SCOPED_TRACE(server);
        write_program(dir, "catalog_server", server);
        const auto failed = run({"demo", "--programs", dir.path(), dir.file(says)});
        EXPECT_EQ(failed.status, 1);
        EXPECT_THAT(failed.err, HasSubstr(std::string("ostrum: ") + says));
    }
}
