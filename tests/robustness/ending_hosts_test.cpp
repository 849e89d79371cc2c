// Hosts, and threads of theirs, end at any moment: while threads run hooks, while threads come and go, while
// the idle walk visits the contexts of all.
#include "robustness/fault_shim.h"
#include "robustness/host_oracle.h"

namespace {

constexpr int before = 7; // operations that were finished long before the end

// From the end on it has 2 s, but the short form runs on machines that do other things, too.
double end_limit_s()
{
    return sanitized() || !long_form() ? 6 : 2;
}

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

struct ending {
    const char* name;
    std::string script; // follows a pause
    bool handlers_run;
};
const std::string on_and_on = times(1'000'000'000, "op_key 7 3; op_key 8 4");
const ending endings[] = {
    {"exit", "exit 5", true},
    {"exit of another thread", "spawn {exit 5}; " + on_and_on, true},
    {"quick_exit", "quick_exit 5", false},
    {"quick_exit of another thread", "spawn {quick_exit 5}; " + on_and_on, false},
};

// Where no handlers run, a lock of the data file may stay held: the next host starts all the same.
// `settled_s`: before the end can begin.
void expect_end(const writing& way, const ending& e, const std::string& work, int most_us,
                const char* flush_frequency, double settled_s)
{
    const std::string pause = "pause " + std::to_string(moment(most_us)) + "; ";
    SCOPED_TRACE(std::string(way.name) + ", " + e.name + " after " + pause);
    const host_options here{.directory = new_directory()};
    const host_settings settings = with(way.settings, {{"ostrum_flush_frequency", flush_frequency}});
    std::vector<host_run> hosts{
        run_watched(settings, "init; " + times(before, "op 9") + work + pause + e.script, here)};
    if (!e.handlers_run) {
        hosts.push_back(run_watched(settings, "init; " + times(before, "op 9") + "query; exit 5", here));
        EXPECT_EQ(hosts[1].exit_status, 5);
        EXPECT_TRUE(hosts[1].logging_enabled());
    }
    const observed_run run = look_at(hosts);
    expect_unharmed(run, {.exit_status = 5,
                          .untold = !e.handlers_run,
                          .killed = e.handlers_run ? 0 : 1,
                          .at_work = true,
                          .uncounted = !e.handlers_run});
    EXPECT_LT(run.host.took_s, settled_s + end_limit_s()) << run.incidents();
    EXPECT_GE(run.calls_of(9), before) << run.incidents();
}

} // namespace

TEST(EndingHosts, ProcessesThatEndWhileThreadsAreAtWork)
{
    case_count runs;
    for (int round = 0; round < (long_form() ? 28 : 1); ++round) {
        for (const writing& way : ways()) {
            for (const ending& e : endings) {
                if (runs.next(2)) {
                    expect_end(way, e, hosts_at_work(), 30'000, "3600", 0.1);
                }
            }
        }
    }
}

// The walk comes once a second: a second after the first one it finds all these contexts due.
TEST(EndingHosts, ProcessesThatEndDuringTheIdleWalk)
{
    const std::string work = contexts(300) + endless("select 1") + "sleep 1000; " + contexts(20);
    case_count runs;
    for (int round = 0; round < (long_form() ? 4 : 1); ++round) {
        for (const writing& way : ways()) {
            for (const ending& e : endings) {
                if (runs.next(16)) {
                    expect_end(way, e, work, 20'000, "1", 1.3);
                }
            }
        }
    }
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
                observe(way.settings, "init; " + std::string(script) + "; await_fault; exit 5");
            expect_unharmed(run, {.exit_status = 5, .at_work = true});
            if (!sanitized()) { // which know no faults: there the exit may be the first to release it
                EXPECT_EQ(run.incidents(), "");
            }
        }
    }
}

using InterruptedHosts = unsanitized_test;

// One that hangs for longer than exit waits.
TEST_F(InterruptedHosts, ProcessesThatEndWhileAWriteHangs)
{
    for (const char* script : {"release_key 1", "op_key 1 4; op_key 1 4; op_key 1 4"}) {
        SCOPED_TRACE(script);
        const std::string hang = "fault write 1 " + std::to_string(fault_hold - 6000);
        const observed_run run =
            observe({{"ostrum_max_log_size", "3"}},
                    "init; op_key 1 4; " + hang + "; spawn {" + script + "}; await_fault; exit 5");
        expect_unharmed(run, {.exit_status = 5, .at_work = true});
        EXPECT_EQ(run.written, 0);
        EXPECT_EQ(run.host.lines_with("unflushed data will be lost"), 1) << run.incidents();
        EXPECT_LT(run.host.took_s, 6) << "it waits for the write";
    }
}

// A service of the host is a cancellation point: the contexts are left to those who come later.
TEST_F(InterruptedHosts, ThreadsThatAreCancelledInAServiceOfTheHost)
{
    const std::string cancel = "fault qellog_get_correlation 1 " + std::to_string(fault_cancel) + "; ";
    const std::string script =
        "init; spawn {op_key 2 3; meet begun 2; meet cancelled 2; op_key 1 9}; meet begun 2;"
        "thread {op_key 1 3; " +
        cancel + "op_key 1 4}; thread {op 3; " + cancel + "op 4}; meet cancelled 2; await; op 9; exit 5";
    for (const writing& way : ways()) {
        SCOPED_TRACE(way.name);
        const observed_run run = observe(with(way.settings, {{"ostrum_debug", "1"}}), script);
        expect_unharmed(run, {.exit_status = 5});
        EXPECT_EQ(run.calls_of(9), 2);
        EXPECT_EQ(run.calls_of(4), 0) << "nobody was cancelled";
        EXPECT_EQ(run.host.lines_with("is in use"), 0);
    }
}

TEST(EndingHosts, ThreadsThatAreCancelledOrEnd)
{
    const int cancelled = long_form() ? 125 : 8;
    const std::string others =
        "spawn {" + times(cancelled, "thread {op_key 5 3; start_key 5 3}; op_key 6 4; release_key 5") + "}; ";
    case_count runs;
    for (const writing& way : ways()) {
        for (const char* idle_walk : {"", "; select 1"}) {
            SCOPED_TRACE(std::string(way.name) + idle_walk);
            std::string script = "init; op 3; spawn {" +
                                 times(20 * cancelled, std::string("op_key 3 3; op_key 4 4") + idle_walk) +
                                 "}; ";
            script += others;
            script += "cancel " + std::to_string(cancelled) + " " + std::to_string(moment(500)) + " {" +
                      times(1'000'000, "op 3; op_key 1 4; cancel_point; start 3; op_key 2 4; "
                                       "cancel_point; end; start_fn f; cancel_point; end_fn f") +
                      "}; await; op 9; op_key 1 9; op_key 2 9; exit 5";
            const observed_run run = observe(way.settings, script);
            expect_unharmed(run, {.exit_status = 5, .complete = true});
            EXPECT_EQ(run.calls_of(9), 3) << "a lock is held";
            runs.add(cancelled);
        }
    }
}

// A host that is not linked with the library.
TEST(EndingHosts, HostsThatCloseTheLibrary)
{
    case_count runs;
    for (int round = 0; round < (long_form() ? 10 : 1); ++round) {
        for (const writing& way : ways()) {
            SCOPED_TRACE(way.name);
            const observed_run run =
                observe(way.settings, std::to_string(moment(30'000)), {.program = OSTRUM_LOADING_HOST});
            expect_unharmed(run, {.exit_status = 5, .complete = true});
            EXPECT_TRUE(run.enabled());
            EXPECT_GT(run.calls_of(4), 0) << "nothing after the library was closed";
            runs.next();
        }
    }
}
