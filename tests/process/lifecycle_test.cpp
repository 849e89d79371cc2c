// What happens to the figures when a thread ends, the process exits or forks, and after signals.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>

#include "support/run_host.h"

namespace {

int64_t count_of(const std::string& text, const std::string& part)
{
    int64_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++n;
    }
    return n;
}

// Sum of the call figures of all paths of an operation at the outermost level.
int64_t calls_of(const host_run& run, int opcode)
{
    std::istringstream lines(run.text_of_files(".plog.txt"));
    int64_t calls = 0;
    bool wanted = false;
    for (std::string line; std::getline(lines, line);) {
        if (line[0] == 'S') {
            wanted = line.rfind("S,1,0," + std::to_string(opcode) + ",", 0) == 0;
        } else if (wanted) {
            const size_t recs_at = line.find(',', 2) + 1;
            calls += std::stoll(line.substr(line.find(',', recs_at) + 1));
            wanted = false;
        }
    }
    return calls;
}

const std::vector<host_setting> timing = {{"ostrum_var_time", "3"}, {"ostrum_debug", "1"}};

// What the host wrote last: under load it writes millions of lines.
std::string end_of(const std::string& text)
{
    constexpr size_t shown = 8'000;
    return text.size() <= shown ? text : "...\n" + text.substr(text.size() - shown);
}

void expect_sound(const host_run& run, int exit_status)
{
    EXPECT_EQ(run.exit_status, exit_status) << end_of(run.errors);
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
    EXPECT_EQ(run.exit_status, 0);
    EXPECT_EQ(calls_of(run, 3), 3);
    // The main thread goes on with a fresh context and ends through exit, not as a thread.
    EXPECT_EQ(run.lines_with("already freed?!"), 0);
    EXPECT_EQ(run.lines_with("lip_list_add : created new loginfo"), 2);
}

TEST(Lifecycle, AForkedChildStartsCleanAndLeavesTheParentsFiguresAlone)
{
    struct {
        const char* child;
        int64_t calls;
    } const cases[] = {{"exit 0", 2},          {"quick_exit 0", 2}, {"op 3; exit 0", 3},
                       {"repeat 3 {op 3}", 5}, {"fork {op 3}", 3},  {"thread {op 3}; op_key 4 3", 4}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.child);
        const host_run run =
            run_host(timing, "op 3; op_key 9 5; fork {" + std::string(c.child) + "}; op 3; exit 0");
        expect_sound(run, 0);
        EXPECT_EQ(calls_of(run, 3), c.calls);
        EXPECT_EQ(calls_of(run, 5), 1);
        EXPECT_GE(run.lines_with("clean_child_atfork : forked child starting"), 1);
        EXPECT_GE(run.lines_with("no flush required (from fork)"), 1);
    }
}

TEST(Lifecycle, AFatalSignalFlushesNothing)
{
    const host_options with_handlers{.signal_handlers = true};
    struct {
        const char* signal;
        int exit_status; // one host handler exits, the other returns and the host goes on
    } const signals[] = {{"SEGV", 11}, {"BUS", 0}};
    for (const auto& c : signals) {
        SCOPED_TRACE(c.signal);
        const host_run run =
            run_host({{"ostrum_var_time", "3"}}, std::string("op 3; raise ") + c.signal, with_handlers);
        EXPECT_EQ(run.exit_status, c.exit_status) << run.errors;
        EXPECT_EQ(run.lines_with("ostrum_fatal_sig_handler : signo["), 1);
        EXPECT_EQ(
            run.lines_with("release_at_process_exit : fatal signal received - unflushed data will be lost"),
            1);
        EXPECT_EQ(calls_of(run, 3), 0);
    }
    // Without a host handler the library's own, installed by the host, ends the process with status 1.
    const host_run run = run_host({{"ostrum_var_time", "3"}}, "op 3; fatal_handler USR1; raise USR1; exit 5");
    EXPECT_EQ(run.exit_status, 1);
    EXPECT_EQ(run.lines_with("release_at_process_exit : fatal signal received"), 1);
    EXPECT_EQ(calls_of(run, 3), 0);
    // A host without handlers of that name keeps the system's.
    EXPECT_EQ(run_host({{"ostrum_var_time", "3"}}, "op 3; raise SEGV; exit 5").exit_status, 128 + 11);
}

TEST(Lifecycle, ExitWhileOthersAreAtWorkEndsSoonAndLosesNothingFinished)
{
    const auto begun = std::chrono::steady_clock::now();
    const host_run run = run_host({{"ostrum_var_time", "3"}},
                                  "op 3; op_key 1 5; spawn {repeat 100000000 {op_key 1 5}}; spawn {repeat "
                                  "100000000 {op_key 2 5}}; sleep 100; exit 0");
    EXPECT_EQ(run.exit_status, 0) << run.errors;
    EXPECT_EQ(calls_of(run, 3), 1);
    EXPECT_GT(calls_of(run, 5), 0) << run.errors;
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(5));
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

TEST(Lifecycle, AThreadThatIsCancelledLeavesNoLockHeld)
{
    std::vector<host_setting> settings = timing; // debug lines: a cancellation point in most steps
    settings.push_back({"ostrum_flush_frequency", "1"});
    settings.push_back({"ostrum_max_log_size", "2"});
    const host_run run = run_host(
        settings,
        "op 3; op_key 1 3; cancel 150 0 {repeat 1000000 {op 5; op_key 1 5; op_key 2 5; cancel_point}};"
        "op_key 1 7; op_key 2 7; op 7; exit 3");
    expect_sound(run, 3);
    EXPECT_GE(calls_of(run, 7), 3);
    EXPECT_EQ(run.lines_with("is in use"), 0);
}

TEST(Lifecycle, AForkedChildKeepsNoFileOfTheParentsOpen)
{
    const host_run run =
        run_host(timing, "op 3; fork {descriptors}; repeat 20 {op_key 1 3; op_key 2 3; op_key 3 3};"
                         "thread {op 5}; op 5; fork {descriptors; op 7; descriptors}; exit 0");
    const auto nth = [&](int n) {
        size_t at = 0;
        for (; n > 0; --n) {
            at = run.output.find("descriptors=", at) + 1;
        }
        return std::stoi(run.output.substr(at + strlen("escriptors=")));
    };
    EXPECT_EQ(nth(2), nth(1));
    EXPECT_EQ(nth(3), nth(1) + 1) << "its own";
}

TEST(Lifecycle, NeitherAFileSizeLimitNorAClosedStandardErrorReachesTheHost)
{
    const host_run limited =
        run_host({{"ostrum_var_time", "2"}}, "op 3; shell prlimit --pid=$PPID --fsize=100:; exit 6");
    EXPECT_EQ(limited.exit_status, 6) << limited.errors;
    EXPECT_EQ(limited.text_of_files(".plog.txt"), "") << "what did not fit whole was taken back";
    EXPECT_EQ(run_host({{"ostrum_var_time", "3"}}, "close 2; close 1; close 0; op 3; exit 6").exit_status, 6);
}

namespace {

std::vector<host_setting> with_flusher()
{
    std::vector<host_setting> settings = timing;
    settings.push_back({"ostrum_async_flushing", "1"});
    settings.push_back({"ostrum_max_log_size", "10"});
    return settings;
}

} // namespace

TEST(Lifecycle, AForkedChildHasAFlusherOfItsOwnWithAnEmptyQueue)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer's runtime cannot start a thread in a forked child";
#endif
#ifdef __SANITIZE_ADDRESS__
    // Its runtime's locks stay locked in a child that is forked while the flusher has one of them.
    const std::string let_the_flusher_rest = "sleep 200; ";
#else
    const std::string let_the_flusher_rest;
#endif
    const host_run run =
        run_host(with_flusher(), "repeat 205 {op 3}; " + let_the_flusher_rest + "fork {repeat 30 {op 7}; " +
                                     let_the_flusher_rest +
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
    std::vector<host_setting> settings = with_flusher();
    const host_run run = run_host(
        settings, "repeat 200 {op 3}; thread {repeat 200 {op 5}}; thread {repeat 200 {op 5}}; exit 4");
    expect_sound(run, 4);
    EXPECT_EQ(calls_of(run, 3), 200);
    EXPECT_EQ(calls_of(run, 5), 400);
    EXPECT_EQ(run.lines_with("perf_async_flusher : started flushing thread"), 1);
    EXPECT_EQ(run.lines_with("release_at_process_exit : joined async flush thread"), 1);

    // Start-up that fails behind the flusher's step: its thread is ended all the same.
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
        const host_run run = run_host(with_flusher(), "spawn {repeat 100000000 {op_key 1 5}};"
                                                      "repeat 3 {fork {op 7; fork {op 9}; exit 0}}; exit 6");
        expect_sound(run, 6);
        EXPECT_EQ(count_of(run.output, "child=0"), 6) << run.output;
    }
}
