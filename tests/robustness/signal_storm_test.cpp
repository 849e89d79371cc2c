// Signals come all the time, in all threads: those that the library handles itself, those that cut system
// calls short, and those that end a process.
#include "robustness/host_oracle.h"

namespace {

// Each thread of the host goes through it under a storm of its own.
std::string work(int key)
{
    const std::string own = std::to_string(key);
    return "op_key " + own + " 3; start_key " + own + " 3; op_key 1" + own + " 4; end_key " + own +
           "; query; release_key " + own + "; variable v" + own + " x; select 1; ";
}

// Threads without a key at the same time would share one context, and with it one call stack.
constexpr const char* work_without_key = "op 3; start 3; flist_op 5; end; thread {op 6}; ";

// From start-up to the exit handlers.
std::string host_in_storm(const std::string& signal, int apart_us, int duration_ms)
{
    const std::string storm = "storm " + signal + " " + std::to_string(apart_us) + " {";
    const std::string during = "during " + std::to_string(duration_ms) + " {";
    std::string script = storm + "init; ";
    for (int thread = 1; thread <= 2; ++thread) {
        script.append("spawn {").append(storm).append(during).append(work(thread)).append("}}}; ");
    }
    return script.append(during).append(work(3)).append(work_without_key).append("}; await; exit 5}");
}

std::vector<writing> ways_and_lock_methods()
{
    std::vector<writing> all = ways();
    for (writing& way : all) {
        way.settings =
            with(way.settings, {{"ostrum_get_process_data", "3"}, {"ostrum_error_counter_level", "63"}});
    }
    if (!sanitized()) { // record locks keep processes apart, not threads, which a sanitizer minds
        all.push_back({"record locks", with(all.back().settings, {{"ostrum_lock_method", "1"}})});
    }
    return all;
}

void run_in_storms(const std::string& before, const std::string& signal, int apart_us, bool interrupts)
{
    const int long_ms = long_form() ? 2'000 : 100;
    case_count runs;
    for (const writing& way : ways_and_lock_methods()) {
        SCOPED_TRACE(way.name);
        const observed_run run = observe(way.settings, before + host_in_storm(signal, apart_us, long_ms));
        expect_unharmed(run, {.exit_status = 5, .complete = true});
        EXPECT_TRUE(!interrupts || reported(run.host, "interrupted") > long_ms / 4);
        runs.next();
    }
}

} // namespace

TEST(SignalStorm, HangupsThatTheLibraryHandles)
{
    const observed_run sampled =
        observe({{"ostrum_get_process_data", "3"}, {"ostrum_status_check_frequency", "0"}},
                "init; storm HUP 1000 {during 200 {op 3}}; exit 5");
    expect_unharmed(sampled, {.exit_status = 5});
    EXPECT_GT(sampled.counts.at("samples"), 5U) << "the storm does not reach the handler";
    run_in_storms("on_signal HUP {}; ", "HUP", 1'000, false);
}

TEST(SignalStorm, TimersThatInterruptEveryCall)
{
    run_in_storms("interrupt ALRM; ", "ALRM", 100, true);
}

namespace {

// A fatal signal that comes to the main thread, while others are at work too.
struct fatal_end {
    const char* name;
    const char* before;
    const char* signal;
    int exit_status;
    bool host_exports_handlers;
    bool told; // the library handles it: it says so, and that it loses what it has
};
constexpr fatal_end fatal_ends[] = {
    {"the host's handler ends it", "", "SEGV", 11, true, true},
    {"the host's handler returns, and the host goes on", "", "BUS", 5, true, true},
    {"the library's handler, installed by the host", "fatal_handler SEGV; ", "SEGV", 1, false, true},
    {"the library's handler for another signal", "fatal_handler TERM; ", "TERM", 1, true, true},
    {"no handler", "", "SEGV", 128 + 11, false, false},
    {"no handler", "", "BUS", 128 + 7, false, false},
};

void expect_nothing_written(const observed_run& run, const fatal_end& end)
{
    expect_unharmed(run, {.exit_status = end.exit_status, .untold = true});
    EXPECT_EQ(run.written, 0) << "a damaged process writes files";
    EXPECT_EQ(run.host.lines_with("ostrum_fatal_sig_handler : signo[") > 0, end.told) << run.incidents();
    EXPECT_EQ(run.host.lines_with("fatal signal received - unflushed data will be lost"), end.told ? 1 : 0);
    EXPECT_LT(run.host.took_s, 10);
}

// A sanitizer looks for leaks at exit, and waits for the allocator that it was interrupted in.
using FatalSignals = unsanitized_test;

} // namespace

TEST_F(FatalSignals, InTheMidstOfHooks)
{
    case_count runs;
    for (int round = 0; round < (long_form() ? 10 : 1); ++round) {
        for (const char* flusher : {"0", "1"}) {
            for (const fatal_end& end : fatal_ends) {
                const long after_us = 500 + (seed() + runs.made()) * 7919 % 20'000;
                const std::string storm = std::string("storm ") + end.signal + " " + std::to_string(after_us);
                SCOPED_TRACE(storm + ", " + end.name + ", flusher " + flusher);
                const std::string script = "init; " + std::string(end.before) +
                                           "spawn {repeat 1000000000 {op_key 3 4; op_key 1 4}}; " + storm +
                                           " {during 60 {op 3; op_key 2 4}}; exit 5";
                expect_nothing_written(observe({{"ostrum_async_flushing", flusher}}, script,
                                               {.signal_handlers = end.host_exports_handlers}),
                                       end);
                runs.next();
            }
        }
    }
}

TEST_F(FatalSignals, EndTheTracingWhereTheHostGoesOn)
{
    const observed_run run = observe({}, "init; raise BUS; op 3; exit 5", {.signal_handlers = true});
    expect_unharmed(run, {.exit_status = 5, .untold = true});
    EXPECT_EQ(run.counts.at("counters"), 0U);
}
