// Hosts, and threads of theirs, end at any moment: while threads run hooks, while threads come and go, while
// the idle walk visits the contexts of all.
#include <iostream>

#include <gtest/gtest.h>

#include "robustness/fault_shim.h"
#include "robustness/host_oracle.h"

namespace {

const double end_limit_s = sanitized() ? 6 : 2; // of start-up too, which a sanitizer makes slow
constexpr int before = 7;                       // operations that were finished long before the end

// Numbers from 0 to below `most`, one for each call.
int moment(int most)
{
    static uint32_t state = seed() * 2'654'435'761U + 1;
    state = state * 1'664'525U + 1'013'904'223U;
    return static_cast<int>((state >> 8) % static_cast<uint32_t>(most));
}

std::string times(int count, const std::string& commands)
{
    return "repeat " + std::to_string(count) + " {" + commands + "}; ";
}

// A thread that goes on to the end of the process.
std::string endless(const std::string& commands)
{
    return "spawn {" + times(1'000'000'000, commands) + "}; ";
}

// Contexts, those that are released, threads that end with operations open, idle waits. Threads without a key
// at the same time would share one context, and with it one call stack: there is one of them.
std::string hosts_at_work()
{
    return endless("op_key 1 3; op_key 2 4") + endless("start_key 3 3; op_key 4 4; end_key 3; op_key 3 5") +
           endless("op_key 5 4; release_key 5; thread {op 3; flist_op 5; op_key 6 4; start 3; start 5}") +
           endless("select 1");
}

std::string contexts(int count)
{
    std::string all;
    for (int key = 10; key < 10 + count; ++key) {
        all += "op_key " + std::to_string(key) + " 4; ";
    }
    return all;
}

// Where no handlers run, a lock of the data file may stay held: the next host starts all the same.
observed_run observe_to_the_end(const writing& way, const std::string& script, bool handlers_run,
                                const host_setting& more = {"ostrum_flush_frequency", "3600"})
{
    const host_options here{.directory = new_directory()};
    std::vector<host_setting> settings = way.settings;
    settings.push_back(more);
    std::vector<host_run> hosts{run_watched(settings, script, here)};
    if (!handlers_run) {
        hosts.push_back(run_watched(settings, "init; " + times(before, "op 9") + "query; exit 5", here));
        EXPECT_EQ(hosts[1].exit_status, 5);
        EXPECT_TRUE(hosts[1].logging_enabled());
    }
    return look_at(hosts);
}

struct ending {
    const char* name;
    std::string script; // follows a pause
    bool handlers_run;
};
const std::vector<ending>& endings()
{
    static const std::vector<ending> all{
        {"exit", "exit 5", true},
        {"exit of another thread", "spawn {exit 5}; " + times(1'000'000'000, "op_key 7 3; op_key 8 4"), true},
        {"quick_exit", "quick_exit 5", false},
        {"quick_exit of another thread",
         "spawn {quick_exit 5}; " + times(1'000'000'000, "op_key 7 3; op_key 8 4"), false},
    };
    return all;
}

// `settled_s`: before the end can begin.
void expect_end(const observed_run& run, bool handlers_run, double settled_s)
{
    expect_unharmed(run, {.exit_status = 5,
                          .untold = !handlers_run,
                          .killed = handlers_run ? 0 : 1,
                          .at_work = true,
                          .uncounted = !handlers_run});
    EXPECT_LT(run.host.took_s, settled_s + end_limit_s) << run.incidents();
    EXPECT_GE(run.calls.count(9) != 0 ? run.calls.at(9) : 0, before) << run.incidents();
}

} // namespace

TEST(EndingHosts, ProcessesThatEndWhileThreadsAreAtWork)
{
    const int rounds = long_form() ? 28 : 1;
    unsigned number = 0;
    int runs = 0;
    for (int round = 0; round < rounds; ++round) {
        for (const writing& way : ways()) {
            for (const ending& e : endings()) {
                if (!takes_part(number++, 2)) {
                    continue;
                }
                const int pause_us = moment(30'000);
                SCOPED_TRACE(std::string(way.name) + ", " + e.name + " after " + std::to_string(pause_us) +
                             " us");
                const observed_run run =
                    observe_to_the_end(way,
                                       "init; " + times(before, "op 9") + hosts_at_work() + "pause " +
                                           std::to_string(pause_us) + "; " + e.script,
                                       e.handlers_run);
                expect_end(run, e.handlers_run, 0.1);
                ++runs;
            }
        }
    }
    std::cout << runs << " runs\n";
}

// The walk comes once a second: a second after the first one it finds all these contexts due.
TEST(EndingHosts, ProcessesThatEndDuringTheIdleWalk)
{
    unsigned number = 0;
    int runs = 0;
    for (int round = 0; round < (long_form() ? 4 : 1); ++round) {
        for (const writing& way : ways()) {
            for (const ending& e : endings()) {
                if (!takes_part(number++, 16)) {
                    continue;
                }
                const int pause_us = moment(20'000);
                SCOPED_TRACE(std::string(way.name) + ", " + e.name + " after " + std::to_string(pause_us) +
                             " us");
                const observed_run run = observe_to_the_end(
                    way,
                    "init; " + times(before, "op 9") + contexts(300) + endless("select 1") + "sleep 1000; " +
                        contexts(20) + "pause " + std::to_string(pause_us) + "; " + e.script,
                    e.handlers_run, {"ostrum_flush_frequency", "1"});
                expect_end(run, e.handlers_run, 1.3);
                ++runs;
            }
        }
    }
    std::cout << runs << " runs\n";
}

// Each of these threads writes its figures, and takes 20 ms, when the process exits.
TEST(EndingHosts, ProcessesThatEndWhileAThreadGivesUpItsContext)
{
    for (const writing& way : ways()) {
        for (const char* script :
             {"op_key 1 4; fault write 1 -3; spawn {release_key 1}", "fault write 1 -3; spawn {op 4}",
              "fault write 1 -3; spawn {op 4; release_key -1; sleep 100}"}) {
            SCOPED_TRACE(std::string(way.name) + ", " + script);
            const observed_run run =
                observe(way.settings, "init; " + std::string(script) + "; sleep 5; exit 5");
            expect_unharmed(run, {.exit_status = 5, .at_work = true});
            EXPECT_EQ(run.incidents(), "");
        }
    }
}

// One that hangs for longer than exit waits.
TEST(EndingHosts, ProcessesThatEndWhileAWriteHangs)
{
    if (sanitized()) {
        GTEST_SKIP() << "without the shim no write hangs";
    }
    for (const char* script : {"release_key 1", "op_key 1 4; op_key 1 4; op_key 1 4"}) {
        SCOPED_TRACE(script);
        const std::string hang = "fault write 1 " + std::to_string(fault_hold - 1500);
        const observed_run run =
            observe({{"ostrum_max_log_size", "3"}},
                    "init; op_key 1 4; " + hang + "; spawn {" + script + "}; sleep 50; exit 5");
        expect_unharmed(run, {.exit_status = 5, .at_work = true});
        EXPECT_EQ(run.written, 0);
        EXPECT_EQ(run.host.lines_with("unflushed data will be lost"), 1) << run.incidents();
        EXPECT_LT(run.host.took_s, 1.5);
    }
}

TEST(EndingHosts, ThreadsThatAreCancelledOrEnd)
{
    const int cancelled = long_form() ? 125 : 8;
    int runs = 0;
    for (const writing& way : ways()) {
        for (const bool idle_walk : {false, true}) {
            SCOPED_TRACE(std::string(way.name) + (idle_walk ? ", idle walk" : ""));
            const std::string cancels =
                "cancel " + std::to_string(cancelled) + " " + std::to_string(moment(500)) + " {" +
                times(1'000'000, "op 3; op_key 1 4; cancel_point; start 3; op_key 2 4; "
                                 "cancel_point; end; start_fn f; cancel_point; end_fn f") +
                "}; ";
            const std::string others =
                "spawn {" +
                times(20 * cancelled,
                      idle_walk ? "op_key 3 3; op_key 4 4; select 1" : "op_key 3 3; op_key 4 4") +
                "}; spawn {" +
                times(cancelled, "thread {op_key 5 3; start_key 5 3}; op_key 6 4; release_key 5") + "}; ";
            std::string script = "init; op 3; ";
            script.append(others).append(cancels).append("await; op 9; op_key 1 9; op_key 2 9; exit 5");
            const observed_run run = observe(way.settings, script);
            expect_unharmed(run, {.exit_status = 5});
            EXPECT_EQ(run.incidents(), "");
            EXPECT_EQ(run.written, run.issued);
            EXPECT_EQ(run.calls.count(9) != 0 ? run.calls.at(9) : 0, 3) << "a lock is held";
            runs += cancelled;
        }
    }
    std::cout << runs << " runs\n";
}

// A host that is not linked with the library.
TEST(EndingHosts, HostsThatCloseTheLibrary)
{
    int runs = 0;
    for (int round = 0; round < (long_form() ? 10 : 1); ++round) {
        for (const writing& way : ways()) {
            SCOPED_TRACE(way.name);
            const observed_run run =
                observe(way.settings, std::to_string(moment(30'000)), {.program = OSTRUM_LOADING_HOST});
            expect_unharmed(run, {.exit_status = 5});
            EXPECT_TRUE(run.enabled());
            EXPECT_EQ(run.incidents(), "");
            EXPECT_EQ(run.written, run.issued);
            EXPECT_GT(run.calls.count(4), 0U) << "nothing after the library was closed";
            ++runs;
        }
    }
    std::cout << runs << " runs\n";
}
