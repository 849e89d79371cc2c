#include <gmock/gmock.h>

#include <regex>

#include "support/run_host.h"

using testing::HasSubstr;
using testing::Not;

namespace {

struct setting_case {
    const char* key;
    const char* value;
    bool accepted;
    std::string lines = ""; // standard error contains them
};

void check(const setting_case& c)
{
    SCOPED_TRACE(std::string(c.key) + "=" + (c.value != nullptr ? c.value : "(unset)"));
    const host_run run = run_host({{"ostrum_debug", "1"}, {c.key, c.value}}, "init; init; op 3");
    EXPECT_EQ(run.exit_status, 0);
    EXPECT_EQ(run.output, c.accepted ? "init=0\ninit=0\n" : "init=-1\ninit=-1\n");
    EXPECT_EQ(run.logging_enabled(), c.accepted) << run.errors;
    // The reason is the last word of a failed start: no later setting is looked at, and no KO line follows.
    EXPECT_THAT(run.errors,
                HasSubstr(c.lines + (c.accepted ? "" : "initialise_ostrum : perf_log_init() failed\n")));
}

} // namespace

TEST(StartupSettings, AggregationPeriodsAreShorterThanTheHourOrTheDayAndDivideIt)
{
    for (const char* accepted : {static_cast<const char*>(nullptr), "15m", "1M", " 30 m", "12H", "20hm"}) {
        check({"ostrum_aggregation_period", accepted, true});
    }
    for (const char* refused :
         {"", "7m", "60m", "0h", "24h", "5h", "8hm", "90", "-5m", "m15", "99999999999999999999h"}) {
        check(
            {"ostrum_aggregation_period", refused, false,
             std::string("\nperf_log_init : ostrum_aggregation_period - invalid value[") + refused + "]\n"});
    }
}

TEST(StartupSettings, EachRuleReportsInItsOwnWords)
{
    const setting_case cases[] = {
        {"ostrum_max_log_size", "5", true, "ostrum_max_log_size[5](maximum set)\n"},
        {"ostrum_max_log_size", "12abc", true,
         "__perf_conf_int : ERROR : variable[OSTRUM_MAX_LOG_SIZE] value[12abc] is not a valid number\n"
         "perf_log_init : ostrum_max_log_size[0](no maximum)\n"},
        {"ostrum_flush_frequency", "-1", false, "\nperf_log_init : ostrum_flush_frequency - bad value\n"},
        {"ostrum_collect_cpu_usage", "-1", false, "\nperf_log_init : ostrum_collect_cpu_usage - bad value\n"},
        {"ostrum_collect_cpu_usage", "100", true},
        {"ostrum_status_check_frequency", "0", true,
         "\nperf_log_init : ostrum_status_check_frequency[0](check each operation)\n"},
        {"ostrum_status_check_frequency", "1.5", true,
         "\nperf_log_init : ostrum_status_check_frequency[1.5](check every 1.500000 seconds)\n"},
        {"ostrum_status_check_frequency", "soon", true,
         "\nperf_log_init : bad value for 'ostrum_status_check_frequency'[soon] - ignored\n"
         "perf_log_init : ostrum_status_check_frequency[soon](check every 0.500000 seconds)\n"},
        {"ostrum_auto_flush", "-5", true, "\nperf_log_init : ostrum_auto_flush[0](disabled)\n"},
        {"ostrum_auto_flush", "1", true, "\nperf_log_init : ostrum_auto_flush[0x1](enabled)\n"},
        {"ostrum_auto_flush", "2", false,
         "\nperf_log_init : ERROR - inside-opcode flushing cannot be used in non-preloaded Ostrum "
         "implementations\n"},
        {"ostrum_auto_flush", "3", false, " in non-preloaded Ostrum implementations\n"},
        {"ostrum_auto_flush", "4", false,
         "\nperf_log_init : ERROR - the 'ostrum_auto_flush' value[0x4](4) is invalid"
         "perf_log_init : ERROR - auto-flush values are: OFF[0] BETWEEN_OPS[0x1] INSIDE_OPS[0x2] "
         "BOTH[0x3]\n"},
        {"ostrum_error_counter_level", "-1", true, "ostrum_error_counter_level[0] => DBNO[NO]"},
        {"ostrum_error_counter_level", "0x41", true,
         "\nperf_log_init : ostrum_error_counter_level[0x41] => DBNO[YES] PROGRAM[NO] OPCODE[NO] CLASS[NO] "
         "LOCATION[NO] ERRNUM[NO]\n"},
        {"ostrum_error_counter_level", "0x40", false,
         "\nperf_log_init : ERROR - the 'ostrum_error_counter_level' value[0x40](64) is invalid"
         "perf_log_init : error-counter flag values are: DBNO[0x1] PROGRAM[0x2] OPCODE[0x4] CLASS[0x8] "
         "LOCATION[0x10] ERRNUM[0x20]\n"},
        {"ostrum_alarm", "", true},
        {"ostrum_alarm", "no", false,
         "\nperf_log_init : ERROR - alarms cannot be used in non-preloaded Ostrum implementations - unset "
         "'ostrum_alarm'\n"},
        {"ostrum_alarm_config_file", "f", false,
         "\nperf_log_init : ERROR - alarms cannot be used in non-preloaded Ostrum implementations - unset "
         "'ostrum_alarm_config_file\n"},
        {"ostrum_alarm_log_at_limit", "-1", false,
         "\nperf_log_init : ostrum_alarm_log_at_limit must be 0 or 1\n"},
        {"ostrum_group_transactions", "1", true, "\nperf_log_init : ostrum_group_transactions[1](on)\n"},
        {"ostrum_group_transactions", "2", false,
         "\nperf_log_init : ostrum_group_transactions must be 0 or 1\n"},
        {"ostrum_log_correlation_in_call_stack", "2", false,
         "\nperf_log_init : ostrum_log_correlation_in_call_stack must be 0 or 1\n"},
        {"ostrum_trace_object_type", "7", true, "\nperf_log_init : ostrum_trace_object_type[0x1](on)\n"},
        {"ostrum_get_process_data", "-1", true, "ostrum_get_process_data[0] => ON[NO] REGISTER[NO]\n"},
        {"ostrum_get_process_data", "2", true, "ostrum_get_process_data[0x2] => ON[NO] REGISTER[YES]\n"},
        {"ostrum_get_process_data", "4", false,
         "\nperf_log_init : ERROR - the 'ostrum_get_process_data' value[0x4](4) is invalid"
         "perf_log_init : process-data flag values are: OFF[0]/ON[0x1] REGISTER[0x2]\n"},
        {"ostrum_logdir", "/nowhere", false,
         "\nfile_type : failed stat of file[/nowhere] - errno[2](No such file or directory)\n"
         "perf_log_init : OSTRUM_LOGDIR[/nowhere] - invalid directory\n"},
        {"ostrum_logdir", "/dev/null", false,
         "logging...\nperf_log_init : OSTRUM_LOGDIR[/dev/null] - invalid directory\n"},
        {"ostrum_data_file", "/tmp", false,
         "\n__data_file_open : data file[/tmp] is a directory\nperf_log_init : failed opening "
         "data_file[/tmp]\n"},
    };
    for (const setting_case& c : cases) {
        check(c);
    }
}

TEST(StartupSettings, ABadLockMethodStopsBothModes)
{
    const std::string reason = "\nperf_common_init : 'ostrum_lock_method' 2 invalid\n"
                               "initialise_ostrum : perf_common_init() failed\n";
    const std::string disabled = "initialise_ostrum : ostrum initialisation KO - logging disabled\n";
    const host_run full = run_host({{"ostrum_lock_method", "2"}}, "init; op 3");
    EXPECT_EQ(full.output, "init=-1\n");
    EXPECT_THAT(full.errors, HasSubstr(reason + disabled));
    const host_run quiet = run_host({{"ostrum_lock_method", "2"}}, "init_quiet; init");
    EXPECT_EQ(quiet.output, "init=-1\ninit=-1\n");
    EXPECT_EQ("\n" + quiet.errors, reason + disabled);
    const host_run advisory = run_host({{"ostrum_lock_method", "1"}, {"ostrum_debug", "1"}}, "init");
    EXPECT_TRUE(advisory.logging_enabled());
    EXPECT_EQ(advisory.lines_with("perf_common_init : lock_method[1](advisory locks)"), 1);
}

TEST(StartupSettings, TheFirstCallersModeSticks)
{
    const host_run quiet = run_host({{"ostrum_var_time", "3"}}, "init_quiet; init; op 3; context_key 1");
    EXPECT_EQ(quiet.output, "init=0\ninit=0\ncontext=no\n");
    EXPECT_EQ(quiet.errors, "");
    EXPECT_TRUE(quiet.files_ending("").empty());

    const host_run full = run_host({{"ostrum_var_time", "3"}}, "op 3; init_quiet");
    EXPECT_EQ(full.output, "init=0\n");
    EXPECT_TRUE(full.logging_enabled());
    EXPECT_EQ(full.files_ending(".plog.txt").size(), 1U);

    const host_run debugged = run_host({{"ostrum_debug", "1"}}, "init_quiet");
    const std::string rule(53, '*');
    EXPECT_EQ(debugged.errors.find(rule + "\n*         ZOR PERFORMANCE LIBRARY STARTING ...      *\n" + rule +
                                   "\ng_perf_common_init : version[2.0.13]\n"),
              0U);
    EXPECT_THAT(debugged.errors, HasSubstr("build_compiler[<BUILD_COMPILER>]\n"
                                           "perf_common_init : DEBUG flag[1](ON)\n"));
    EXPECT_THAT(debugged.errors, Not(HasSubstr("perf_log_init")));
}

TEST(StartupSettings, ConcurrentFirstCallsStartOnceAndAllSeeTheResult)
{
    const host_run run = run_host({{"ostrum_var_time", "3"}}, "threads 8 { op 3; init }");
    EXPECT_EQ(run.output, "init=0\ninit=0\ninit=0\ninit=0\ninit=0\ninit=0\ninit=0\ninit=0\n");
    EXPECT_EQ(run.lines_with("ZOR PERFORMANCE"), 1);
    EXPECT_TRUE(run.logging_enabled());
    EXPECT_FALSE(run.files_ending(".plog.txt").empty());
}

TEST(StartupSettings, AHostServiceThatComesBackDuringTheStartIsTurnedAway)
{
    for (const char* first : {"init", "op 3", "op_key 5 3"}) {
        SCOPED_TRACE(first);
        const host_run run = run_host({}, std::string("reenter;") + first + "; init");
        EXPECT_EQ(run.exit_status, 0);
        EXPECT_EQ(run.output.find("init=-1\ninit=-1\n"), 0U);
        EXPECT_EQ(run.output.find("BAD"), std::string::npos);
        EXPECT_TRUE(run.logging_enabled());
    }
}

TEST(StartupSettings, TheDataFileIsNamedAfterItsTemplate)
{
    const host_run run = run_host({{"ostrum_data_file", "stats_%p_%T_%t%%q%.dat"}}, "init");
    ASSERT_EQ(run.files_ending(".dat").size(), 1U) << run.errors;
    EXPECT_TRUE(std::regex_search(run.files_ending(".dat").at(0),
                                  std::regex(R"(/stats_\d+_\d{14}_1\d{9}%%q%\.dat$)")))
        << run.files_ending(".dat").at(0);

    const auto errors_of_length = [](size_t length) {
        const host_run refused = run_host({{"ostrum_data_file", std::string(length, 'x').c_str()}}, "init");
        EXPECT_FALSE(refused.logging_enabled());
        return refused.errors;
    };
    const std::string longest(1022, 'x'); // too long for the file system, not for the name
    EXPECT_THAT(errors_of_length(1022),
                HasSubstr("perf_log_init : failed opening data_file[" + longest + "]\n"));
    EXPECT_THAT(errors_of_length(1023),
                HasSubstr("build_data_file_name : cannot encode template[x" + longest +
                          "] in 1023 bytes\nperf_log_init : failed building data file name from[x" + longest +
                          "]\n"));
}

TEST(StartupSettings, AnExistingDataFileIsResetOnlyWhenAsked)
{
    const std::vector<host_setting> kept{{"ostrum_debug", "1"}};
    const host_run first = run_host(kept, "init");
    const std::string title = "INITIAL VARIABLE SETTINGS";
    EXPECT_EQ(first.lines_with(title), 1); // a new file
    EXPECT_EQ(run_host(kept, "init", {.directory = first.directory}).lines_with(title), 0);
    EXPECT_EQ(run_host({{"ostrum_debug", "1"}, {"ostrum_data_file_reset", "Yes"}}, "init",
                       {.directory = first.directory})
                  .lines_with(title),
              1);
}

TEST(StartupSettings, ABucketFileThatCannotBeUsedCostsTheBucketsOnly)
{
    const auto directory = std::make_shared<temp_dir>();
    directory->write("good", "# opcodes\n3 0.01 1\n* 1\n");
    directory->write("bad", "3 0.01 1\n4 soon\n");
    const std::pair<const char*, const char*> cases[] = {
        {nullptr, "\nperf_log_init : ostrum_opcode_bucket_file[][none] #opcodes[-1]\n"},
        {"good", "\nperf_log_init : ostrum_opcode_bucket_file[good][defined] #opcodes[2]\n"},
        {"missing",
         "\nread_opcode_buckets : ERROR - Failed opening opcode bucket file 'missing' - 2 (No such file or "
         "directory)\nperf_log_init : ostrum_opcode_bucket_file[missing][defined] #opcodes[0]\n"},
        {"bad", "\nread_opcode_buckets : bad threshold 'soon' (0) for opcode '4' in file 'bad'.\n"
                "perf_log_init : failed loading bucket list [bad]\n"
                "perf_log_init : no opcode buckets will be used - normal tracing will remain enabled\n"
                "perf_log_init : ostrum_opcode_bucket_file[bad][defined] #opcodes[0]\n"},
    };
    for (const auto& [file, lines] : cases) {
        const host_run run = run_host({{"ostrum_opcode_bucket_file", file}, {"ostrum_debug", "1"}}, "init",
                                      {.directory = directory});
        EXPECT_TRUE(run.logging_enabled());
        EXPECT_THAT(run.errors, HasSubstr(lines));
    }
}

TEST(StartupSettings, ASingleFileInTheLogDirectoryIsNamedAfterPrefixAndProcess)
{
    const temp_dir logs;
    const host_run run = run_host({{"ostrum_log_single_file", "all"},
                                   {"ostrum_logdir", logs.path().c_str()},
                                   {"ostrum_var_time", "3"},
                                   {"ostrum_debug", "1"}},
                                  "threads 3 { op 3 }");
    EXPECT_EQ(run.lines_with("perf_log_init : ostrum_log_max_single_file_size[default][1073741824]"), 1);
    ASSERT_EQ(logs.files_ending(".plog.txt").size(), 1U);
    EXPECT_TRUE(std::regex_search(logs.files_ending(".plog.txt").at(0), std::regex(R"(/all\.\d+\.2)")));
}

TEST(FatalSignals, GoToTheHostsHandlersOrToTheLibrarysOwn)
{
    const struct {
        const char* script;
        bool host_exports_handlers;
        int exit_status;
        const char *output, *bound, *signal;
    } cases[] = {
        {"op 3; raise SEGV", true, 11, "sigsegv_handler=11\n", "overriding 'sigbus_handler'", "11"},
        {"op 3; fatal_handler TERM; raise TERM", false, 1, "", "no 'sigsegv_handler' found", "15"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        const host_run run = run_host({{"ostrum_var_time", "3"}, {"ostrum_debug", "1"}}, c.script,
                                      {.signal_handlers = c.host_exports_handlers});
        EXPECT_EQ(run.exit_status, c.exit_status);
        EXPECT_EQ(run.output, c.output);
        EXPECT_THAT(run.errors, HasSubstr(std::string("\nperf_init_func_ptrs : ") + c.bound + "\n"));
        EXPECT_THAT(run.errors,
                    HasSubstr(std::string("\nostrum_fatal_sig_handler : signo[") + c.signal +
                              "]\nrelease_at_process_exit : fatal signal received - unflushed data "
                              "will be lost\n"));
        EXPECT_EQ(run.text_of_files(".plog.txt"), "");
    }
}
