// Signals come all the time, in all threads: those that the library handles itself, those that cut system
// calls short, and those that end a process.
#include <iostream>

#include <gtest/gtest.h>

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
        way.settings.push_back({"ostrum_get_process_data", "3"});
        way.settings.push_back({"ostrum_error_counter_level", "63"});
    }
    if (!sanitized()) { // record locks keep processes apart, not threads, which a sanitizer minds
        all.push_back(all.back());
        all.back().name = "record locks";
        all.back().settings.push_back({"ostrum_lock_method", "1"});
    }
    return all;
}

int duration_ms(size_t hosts)
{
    return (long_form() ? 10'000 : 500) / static_cast<int>(hosts);
}

} // namespace

TEST(SignalStorm, HangupsThatTheLibraryHandles)
{
    const observed_run sampled =
        observe({{"ostrum_get_process_data", "3"}, {"ostrum_status_check_frequency", "0"}},
                "init; storm HUP 1000 {during 100 {op 3}}; exit 5");
    expect_unharmed(sampled, {.exit_status = 5});
    EXPECT_GT(sampled.counts.at("samples"), 10U) << "the storm does not reach the handler";
    int runs = 1;
    for (const writing& way : ways_and_lock_methods()) {
        SCOPED_TRACE(way.name);
        const observed_run run =
            observe(way.settings, "on_signal HUP {}; " + host_in_storm("HUP", 1'000, duration_ms(5)));
        expect_unharmed(run, {.exit_status = 5});
        EXPECT_EQ(run.incidents(), "");
        EXPECT_EQ(run.written, run.issued);
        ++runs;
    }
    std::cout << runs << " runs\n";
}

TEST(SignalStorm, TimersThatInterruptEveryCall)
{
    constexpr int apart_us = 100;
    int runs = 0;
    for (const writing& way : ways_and_lock_methods()) {
        SCOPED_TRACE(way.name);
        const int long_ms = duration_ms(5);
        const observed_run run =
            observe(way.settings, "interrupt ALRM; " + host_in_storm("ALRM", apart_us, long_ms));
        expect_unharmed(run, {.exit_status = 5});
        EXPECT_EQ(run.incidents(), "");
        EXPECT_EQ(run.written, run.issued);
        EXPECT_GT(reported(run.host, "interrupted"), long_ms);
        ++runs;
    }
    std::cout << runs << " runs\n";
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
    EXPECT_LT(run.host.took_s, 2.5);
}

} // namespace

TEST(SignalStorm, FatalSignals)
{
    if (sanitized()) {
        GTEST_SKIP()
            << "a sanitizer looks for leaks at exit, and waits for the allocator that it was interrupted in";
    }
    const int rounds = long_form() ? 10 : 1;
    int runs = 0;
    for (int round = 0; round < rounds; ++round) {
        for (const char* flusher : {"0", "1"}) {
            for (const fatal_end& end : fatal_ends) {
                const int after_us =
                    500 + static_cast<int>(seed() + static_cast<unsigned>(runs)) * 7919 % 20'000;
                SCOPED_TRACE(std::string(end.signal) + ", " + end.name + ", after " +
                             std::to_string(after_us) + " us, flusher " + flusher);
                const std::string busy = "repeat 1000000000 {op_key 3 4; op_key ";
                const std::string script = "init; " + std::string(end.before) + "spawn {" + busy +
                                           "1 4}}; storm " + end.signal + " " + std::to_string(after_us) +
                                           " {during 60 {op 3; op_key 2 4}}; exit 5";
                expect_nothing_written(observe({{"ostrum_async_flushing", flusher}}, script,
                                               {.signal_handlers = end.host_exports_handlers}),
                                       end);
                ++runs;
            }
        }
    }
    std::cout << runs << " runs\n";
}
