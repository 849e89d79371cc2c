// The monitoring program of examples/, run on the data file of a host process: what a tool sees of it.
#include <gtest/gtest.h>

#include <regex>

#include "support/run_command.h"
#include "support/run_host.h"

namespace {

command_run run_monitor(const std::string& arguments)
{
    return run_command(OSTRUM_MONITOR " " + arguments);
}

class Monitor : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(host_.exit_status, 0) << host_.errors; }

    const host_run host_ = run_host({{"ostrum_var_time", "1"}, {"ostrum_error_counter_level", "0x3f"}},
                                    "repeat 3 {op 3}; start 7 one_name; end; op 7 300; op 7 300; op 1 301");
    const std::string file_ = host_.directory->file("ostrum_data.dat");
};

} // namespace

TEST_F(Monitor, ShowsAndClears)
{
    const command_run first = run_monitor("-r " + file_);
    ASSERT_EQ(first.exit_status, 0) << first.output;
    EXPECT_TRUE(first.shows(": version ostrum-64bit, last opened by process ")) << first.output;
    EXPECT_TRUE(first.shows("counters by operation: 3, cleared as they were read\n")) << first.output;
    for (const char* row :
         {"\n 3 op_3 3 0 ", "\n 7 one_name 3 2 ",
          "errors by operation and number: 2, cleared as they were read\n", " error 300 2 times\n",
          " error 301 1 times\n", "\n time_on \"1\"\n",
          "process metrics\n CPU seconds: user 0.000000000, system 0.000000000\n updates 0\n"}) {
        EXPECT_TRUE(first.shows(row)) << row << " is not in\n" << first.output;
    }
    EXPECT_FALSE(first.shows("data manager")) << "nobody has published figures of one";

    const command_run second = run_monitor(file_);
    EXPECT_TRUE(second.shows("counters by operation: 3\n")) << "the keys stay\n" << second.output;
    EXPECT_TRUE(std::regex_search(second.output, std::regex("\n 3 \\S+ 0 0 0 0.000000000\n")))
        << second.output;
    EXPECT_TRUE(second.shows(" error 300 0 times\n")) << second.output;
}

TEST_F(Monitor, SetsVariablesInTheOrderGiven)
{
    const command_run run = run_monitor("-s trace_opcodes=7,40 -s flist_on=2 -s flist_on=1 -s new= " + file_);
    EXPECT_EQ(run.exit_status, 0);
    const command_run later = run_monitor(file_);
    for (const char* row : {"\n trace_opcodes \"7,40\"\n", "\n flist_on \"1\"\n", "\n new \"\"\n"}) {
        EXPECT_TRUE(run.shows(row) && later.shows(row)) << row << " is not in\n" << later.output;
    }
}

TEST_F(Monitor, SaysWhatItCouldNotDo)
{
    const std::string broken = host_.directory->write("broken.dat", "too short");
    const std::string missing = host_.directory->file("missing.dat");
    const struct {
        std::string arguments;
        int exit_status;
        const char* message;
    } cases[] = {
        {"", 2, "usage: monitor"},
        {file_ + " " + file_, 2, "usage: monitor"},
        {"-x " + file_, 2, "usage: monitor"},
        {"-s flist_on " + file_, 2, "usage: monitor"},
        {"-s =1 " + file_, 2, "usage: monitor"},
        {missing, 1, "missing.dat"},
        {broken, 1, "broken.dat"},
        {"-s " + std::string(128, 'n') + "=1 " + file_, 1, "could not be set"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        const command_run run = run_monitor(c.arguments);
        EXPECT_EQ(run.exit_status, c.exit_status);
        EXPECT_TRUE(run.shows(c.message)) << run.output;
    }
    EXPECT_TRUE(host_.files_ending("missing.dat").empty()) << "a tool makes no data file";
}
