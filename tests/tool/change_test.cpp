// What changes a data file, and what looks at a whole set-up.
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "readers/data_locks.h"
#include "tool/data_image.h"
#include "tool/tool_fixture.h"

using namespace ostrum_tool;
using testing::HasSubstr;
using testing::Not;
using tool_test::image_builder;
using tool_test::run;

namespace {

constexpr size_t tables_lock = 32 + 2 * 64;

image_builder host_image()
{
    return image_builder().locks();
}

class DataFileOfAHost : public testing::Test {
protected:
    std::string write(const image_builder& image) { return dir.write("d'.dat", image.bytes()); }
    // The findings of a check, one a line, behind their severity.
    std::string doctor(const std::string& check, const std::string& path)
    {
        const auto rows = nlohmann::json::parse(run({"doctor", "--json", path}).out).at("rows");
        std::string findings;
        for (const auto& row : rows) {
            if (row.at("check") == check) {
                findings +=
                    row.at("severity").get<std::string>() + " " + row.at("what").get<std::string>() + "\n";
            }
        }
        return findings;
    }
    temp_dir dir;
};

} // namespace

TEST_F(DataFileOfAHost, ChangesOnlyWithConsent)
{
    const std::string file =
        write(host_image().counter("a", 1, 1, 5, 9).error(37, "a", 4).variable("time_on", "1").locks());
    const std::string before = dir.read(file);
    const std::vector<std::vector<std::string>> changes{
        {"vars", "set", "time_on", "3", file}, {"counters", "reset", file}, {"errors", "reset", file}};
    for (std::vector<std::string> words : changes) {
        SCOPED_TRACE(words[0]);
        EXPECT_EQ(run(words).status, 2) << "nobody to ask";
        words.emplace_back("--dry-run");
        EXPECT_THAT(run(words).out, HasSubstr("nothing was changed (--dry-run)"));
        EXPECT_EQ(run(words).status, 0);
        EXPECT_EQ(dir.read(file), before);
    }
    const auto set = run({"vars", "set", "--yes", "time_on", "3", file});
    EXPECT_EQ(set.status, 0) << set.err;
    EXPECT_THAT(set.out, HasSubstr("undo: ostrum vars set time_on 1 '" + dir.path() + "/d'\\''.dat'\n"));
    EXPECT_THAT(set.out, HasSubstr("no process of yours has the file open"));
    EXPECT_THAT(run({"vars", "--csv", file}).out, HasSubstr("\ntime_on,3\n"));
    EXPECT_THAT(run({"counters", "reset", "--yes", file}).out, HasSubstr("1 counters (5 calls) become 0"));
    EXPECT_THAT(run({"errors", "reset", "--yes", file}).out, HasSubstr("reset; 0 errors since"));
    EXPECT_THAT(run({"counters", "--csv", file}).out, HasSubstr("\na,1,0,dm,a.c,1,/part,0,0,0,0,0,,0,0\n"));
    const std::string held =
        dir.write("held.dat", host_image().word(tables_lock + 16, 1).error(1, "a", 4).bytes());
    const auto refused = run({"errors", "reset", "--yes", held});
    EXPECT_EQ(refused.status, 1) << refused.out << "a lock that nobody gives back";
    EXPECT_EQ(run({"vars", "set", "--yes", std::string(128, 'n'), "1", file}).status, 2);
    EXPECT_EQ(run({"vars", "set", "--yes", "n", std::string(1024, 'v'), file}).status, 2);
    EXPECT_EQ(run({"vars", "set", "--yes", "n", "1", dir.file("absent")}).status, 1);
}

TEST_F(DataFileOfAHost, IsWatchedAfterAChange)
{
    const std::string file = write(host_image().counter("a", 1, 1, 5, 9).variable("time_on", "0"));
    const pid_t host = fork();
    if (host == 0) { // has the file open, and counts
        std::fstream open_file(file, std::ios::in | std::ios::out | std::ios::binary);
        for (uint64_t calls = 6;; ++calls) {
            open_file.seekp(368 + 608).write(reinterpret_cast<const char*>(&calls), sizeof calls).flush();
            usleep(20'000);
        }
    }
    const auto taken = run({"vars", "set", "--yes", "time_on", "1", file});
    const auto unknown = run({"vars", "set", "--yes", "trace_opcodes", "7", file});
    const auto not_yet = run({"vars", "set", "--yes", "--wait", "300ms", "flist_on", "1", file});
    kill(host, SIGKILL);
    waitpid(host, nullptr, 0);
    EXPECT_THAT(taken.out,
                HasSubstr("taken: operations are counted; used by 1 process: " + std::to_string(host)));
    EXPECT_THAT(unknown.out, HasSubstr("nothing that they do shows it"));
    EXPECT_THAT(not_yet.out, HasSubstr("not seen yet: a field-list trace is open"));
}

TEST_F(DataFileOfAHost, IsExamined)
{
    for (const char* variable : {"OSTRUM_LOGDIR", "OSTRUM_LOCK_METHOD"}) {
        unsetenv(variable);
    }
    const std::string good = write(host_image().variable("time_on", "3"));
    EXPECT_THAT(doctor("locks", good), HasSubstr("ok none stays held"));
    EXPECT_THAT(doctor("variables", good), HasSubstr("ok "));
    EXPECT_THAT(doctor("processes", good), HasSubstr("warning no process"));

    EXPECT_THAT(doctor("data file", dir.write("short", "x")), HasSubstr("wrong "));
    EXPECT_THAT(doctor("locks", dir.file("short")), HasSubstr("not looked at"));
    EXPECT_EQ(run({"doctor", dir.file("absent")}).status, 4);

    // A thread id that no system gives away.
    const std::string held = write(host_image().word(tables_lock + 16, 1).word(tables_lock + 24, 0x7FFFFFF0));
    EXPECT_THAT(doctor("locks", held),
                HasSubstr("wrong the lock of tables is held by 2147483632, which has gone"));

    image_builder full = host_image();
    for (int number = 0; number < 512; ++number) {
        full.variable("v" + std::to_string(number), "");
    }
    EXPECT_THAT(doctor("tables", write(full)), HasSubstr("wrong 512 of 512 variables are in use"));

    const std::string odd = write(host_image()
                                      .variable("time_on", "yes")
                                      .variable("timeon", "1")
                                      .variable("alarm_on", "1")
                                      .variable("flist_on", "4")
                                      .variable("trace_opcodes", "7,search"));
    const std::string said = doctor("variables", odd);
    for (const char* part :
         {"time_on is \"yes\", which reads as 0", "no variable timeon", "alarm_on switches nothing",
          "flist_on 4 has neither", "trace_opcodes \"7,search\": what is no number"}) {
        EXPECT_THAT(said, HasSubstr(part));
    }
    EXPECT_THAT(doctor("variables", write(host_image().variable("trace_opcodes", "7"))),
                HasSubstr("switches nothing on while flist_on is off"));
}

TEST_F(DataFileOfAHost, IsRefusedWithTheseSettings)
{
    struct setting_case {
        const char* name;
        const char* value;
        const char* expected; // null: all is well
    };
    const std::string file = write(host_image());
    for (const setting_case& each : {
             setting_case{"OSTRUM_AGGREGATION_PERIOD", "7m", "wrong"},
             {"OSTRUM_AGGREGATION_PERIOD", "", "wrong"},
             {"OSTRUM_AGGREGATION_PERIOD", "15m", nullptr},
             {"OSTRUM_LOCK_METHOD", "2", "wrong"},
             {"OSTRUM_FLUSH_FREQUENCY", "-1", "wrong"},
             {"OSTRUM_AUTO_FLUSH", "3", "wrong"},
             {"OSTRUM_ERROR_COUNTER_LEVEL", "0x40", "wrong"},
             {"OSTRUM_ERROR_COUNTER_LEVEL", "0x7f", nullptr},
             {"OSTRUM_ALARM", "x", "wrong"},
             {"OSTRUM_GET_PROCESS_DATA", "4", "wrong"},
             {"OSTRUM_GET_PROCESS_DATA", "2", "warning"},
             {"OSTRUM_STATUS_CHECK_FREQUENCY", "soon", "warning"},
             {"OSTRUM_STATUS_CHECK_FREQUENCY", "-1", "warning"},
             {"OSTRUM_STATUS_CHECK_FREQUENCY", " +5.", nullptr},
             {"OSTRUM_COLLECT_CPU_USAGE", "many", "warning"},
             {"OSTRUM_LOG_DIR", "/tmp", "warning"},
         }) {
        SCOPED_TRACE(std::string(each.name) + "=" + each.value);
        setenv(each.name, each.value, 1);
        EXPECT_THAT(doctor("settings", file),
                    testing::StartsWith(each.expected != nullptr ? each.expected : "ok"));
        unsetenv(each.name);
    }
    // The configuration file by the platform's rules: sections with blanks, lines that only look like one.
    const std::filesystem::path here = std::filesystem::current_path();
    std::filesystem::current_path(dir.file("."));
    dir.write("qel.conf", "[other]\nostrum_auto_flush = 3\n[ ostrum ]\n[x\nostrum_lock_method = \"2\"\n");
    const std::string configured = doctor("settings", file);
    std::filesystem::remove("qel.conf");
    std::filesystem::current_path(here);
    EXPECT_THAT(configured, HasSubstr("ostrum_lock_method"));
    EXPECT_THAT(configured, Not(HasSubstr("ostrum_auto_flush")));

    setenv("OSTRUM_LOGDIR", dir.file("absent").c_str(), 1);
    EXPECT_THAT(doctor("log directories", file), HasSubstr("wrong a start here: "));
    unsetenv("OSTRUM_LOGDIR");
    EXPECT_THAT(doctor("log directories", file), Not(HasSubstr("wrong")));
}
