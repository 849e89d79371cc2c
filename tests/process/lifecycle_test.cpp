// What happens to the figures when a thread ends, the process exits or forks, and after signals.
#include <regex>

#include <gtest/gtest.h>

#include "support/run_host.h"
#include "support/texts.h"

namespace {

// Sum of the call figures of all paths of an operation at the outermost level that call nothing else.
int64_t calls_of(const host_run& run, int opcode)
{
    const std::string text = run.text_of_files(".plog.txt");
    const std::regex record("\nS,1,0," + std::to_string(opcode) + ",.*\nF,[^,]*,[^,]*,(\\d+)");
    int64_t calls = 0;
    for (std::sregex_iterator found(text.begin(), text.end(), record), end; found != end; ++found) {
        calls += std::stoll((*found)[1]);
    }
    return calls;
}

const std::vector<host_setting> timing = {{"ostrum_var_time", "3"}, {"ostrum_debug", "1"}};

const std::vector<host_setting> with_flusher = {{"ostrum_var_time", "3"},
                                                {"ostrum_debug", "1"},
                                                {"ostrum_async_flushing", "1"},
                                                {"ostrum_max_log_size", "10"}};

void expect_sound(const host_run& run, int exit_status)
{
    // The end of what it wrote: under load it writes millions of lines.
    const size_t shown = std::min(run.errors.size(), size_t{8'000});
    EXPECT_EQ(run.exit_status, exit_status) << run.errors.substr(run.errors.size() - shown);
    EXPECT_EQ(run.output.find("BAD"), std::string::npos) << run.output;
    EXPECT_EQ(run.lines_with("already freed?!"), 0) << run.errors;
}

} // namespace

TEST(Lifecycle, ExitWritesEveryContextOnce)
{
    const host_run run =
        run_host(timing, "repeat 5 {op 3}; thread {op_key 1 5; op_key 2 5}; start 7; exit 3");
    expect_sound(run, 3);
    EXPECT_EQ(calls_of(run, 3), 5);
    EXPECT_EQ(calls_of(run, 5), 2);
    EXPECT_EQ(count_of(run.text_of_files(".plog.txt"), "S,1,0,7,"), 1)
        << "the open operation, without a call";
    EXPECT_EQ(run.lines_with("release_at_process_exit : 3 loginfo structures freed"), 1);
    EXPECT_EQ(run.files_ending(".plog.txt").size(), 2U) << "keyed contexts show thread id 0 and share a file";
}

TEST(Lifecycle, AThreadThatEndsWritesItsFiguresAndExitDoesNotRepeatThem)
{
    const host_run run = run_host(timing, "thread {repeat 4 {op 3}}; thread {repeat 2 {op 3}}; exit 0");
    expect_sound(run, 0);
    EXPECT_EQ(calls_of(run, 3), 6);
    EXPECT_EQ(run.lines_with("release_at_thread_exit : cleanup thread"), 2);
    EXPECT_EQ(run.lines_with("release_at_process_exit : no loginfo structures found"), 1);
}

TEST(Lifecycle, TheSecondThreadOfASharedContextFindsItReleased)
{
    const host_run run = run_host(timing, "op 3; thread {op 3}; op 3; exit 0");
    expect_sound(run, 0);
    EXPECT_EQ(calls_of(run, 3), 3);
    EXPECT_EQ(run.lines_with("lip_list_add : created new loginfo"), 2) << "the main thread has a fresh one";
}

TEST(Lifecycle, AForkedChildStartsCleanAndLeavesTheParentsFiguresAlone)
{
    const std::pair<std::string, int64_t> cases[] = {{"exit 0", 2},       {"quick_exit 0", 2},
                                                     {"op 3; exit 0", 3}, {"repeat 3 {op 3}", 5},
                                                     {"fork {op 3}", 3},  {"thread {op 3}; op_key 4 3", 4}};
    for (const auto& [child, calls] : cases) {
        SCOPED_TRACE(child);
        const host_run run = run_host(timing, "op 3; op_key 9 5; fork {" + child + "}; op 3; exit 0");
        expect_sound(run, 0);
        EXPECT_EQ(calls_of(run, 3), calls);
        EXPECT_EQ(calls_of(run, 5), 1);
        EXPECT_GE(run.lines_with("clean_child_atfork : forked child starting"), 1);
        EXPECT_GE(run.lines_with("no flush required (from fork)"), 1);
    }
}

TEST(Lifecycle, ExitFromASignalHandlerInTheMiddleOfHooksDoesNotHang)
{
    for (int delay_ms = 20; delay_ms < 60; delay_ms += 7) {
        const char* async = delay_ms % 2 == 0 ? "0" : "1";
        const host_run run = run_host({{"ostrum_var_time", "3"},
                                       {"ostrum_status_check_frequency", "0"},
                                       {"ostrum_async_flushing", async},
                                       {"ostrum_max_log_size", "100"}},
                                      "repeat 300 {op 3}; on_signal ALRM {exit 4}; alarm " +
                                          std::to_string(delay_ms) + "; repeat 100000000 {op 3}");
        EXPECT_EQ(run.exit_status, 4) << run.errors;
        EXPECT_GT(calls_of(run, 3), 0);
    }
}

TEST(Lifecycle, AForkedChildKeepsNoFileOfTheParentsOpen)
{
    const host_run run =
        run_host(timing, "op 3; fork {descriptors}; repeat 20 {op_key 1 3; op_key 2 3; op_key 3 3};"
                         "thread {op 5}; op 5; fork {descriptors; op 7; descriptors}; exit 0");
    std::smatch shown;
    ASSERT_TRUE(std::regex_search(
        run.output, shown, std::regex("descriptors=(\\d+)\nchild=0\ndescriptors=\\1\ndescriptors=(\\d+)\n")))
        << run.output;
    EXPECT_EQ(std::stoi(shown[2]), std::stoi(shown[1]) + 1) << "its own";
}

TEST(Lifecycle, AFileSizeLimitDoesNotReachTheHost)
{
    const host_run limited =
        run_host({{"ostrum_var_time", "2"}}, "op 3; shell prlimit --pid=$PPID --fsize=100:; exit 6");
    EXPECT_EQ(limited.exit_status, 6) << limited.errors;
    EXPECT_EQ(limited.text_of_files(".plog.txt"), "") << "what did not fit whole was taken back";
}

TEST(Lifecycle, AForkedChildHasAFlusherOfItsOwnWithAnEmptyQueue)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer's runtime cannot start a thread in a forked child";
#endif
    // The flusher rests where another process is made: an address sanitizer's locks stay locked in the child.
    const host_run run =
        run_host(with_flusher, "repeat 205 {op 3}; sleep 200; fork {repeat 30 {op 7}; sleep 200; "
                               "fork {op 9}}; fork {exit 0}; fork {quick_exit 0}; op 3; exit 4");
    expect_sound(run, 4);
    EXPECT_EQ(calls_of(run, 3), 206);
    EXPECT_EQ(calls_of(run, 7), 30);
    EXPECT_EQ(calls_of(run, 9), 1);
    EXPECT_EQ(run.lines_with("clean_child_atfork : initialised async flushing for pid["), 4);
    EXPECT_EQ(run.lines_with("release_at_process_exit : joined async flush thread"), 4);
}

TEST(Lifecycle, WithTheFlusherEveryTreeIsInTheFilesWhenTheProcessHasEnded)
{
    const host_run run = run_host(
        with_flusher, "repeat 200 {op 3}; thread {repeat 200 {op 5}}; thread {repeat 200 {op 5}}; exit 4");
    expect_sound(run, 4);
    EXPECT_EQ(calls_of(run, 3), 200);
    EXPECT_EQ(calls_of(run, 5), 400);
    EXPECT_EQ(run.lines_with("perf_async_flusher : started flushing thread"), 1);
    EXPECT_EQ(run.lines_with("release_at_process_exit : joined async flush thread"), 1);

    // Start-up that fails behind the flusher's step: its thread is ended all the same.
    std::vector<host_setting> settings = with_flusher;
    settings.push_back({"ostrum_get_process_data", "4"});
    const host_run failed = run_host(settings, "op 3; exit 5");
    expect_sound(failed, 5);
    EXPECT_EQ(failed.lines_with("release_at_process_exit : joined async flush thread"), 1);
}

// The first fork comes while another thread starts the library up: the child goes through it itself.
TEST(Lifecycle, AChildForkedInTheMidstOfStartUpEndsSoon)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer's runtime cannot start a thread in a forked child";
#elif defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's allocator may be locked, for ever, in a child of several threads";
#endif
    for (int round = 0; round < 10; ++round) {
        const host_run run = run_host(with_flusher, "spawn {repeat 100000000 {op_key 1 5}};"
                                                    "repeat 3 {fork {op 7; fork {op 9}; exit 0}}; exit 6");
        expect_sound(run, 6);
        EXPECT_EQ(count_of(run.output, "child=0"), 6) << run.output;
    }
}

TEST(Lifecycle, AProgramThatTheHostBecomesInheritsNoFile)
{
    const std::string without = run_host({}, "exec descriptors").output;
    EXPECT_EQ(without.substr(0, 12), "descriptors=");
    EXPECT_EQ(run_host({{"ostrum_var_time", "3"}}, "op 3; exec descriptors").output, without);
}
