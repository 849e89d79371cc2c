// Hosts start while others hold the locks of the data file or wait for them, and all at the same moment.
#include "robustness/fault_shim.h"
#include "robustness/several_hosts.h"

namespace {

// Hosts with the opcodes 10, 11 ... at the same time: the last ones start only now.
void run_hosts(const writing& way, const std::vector<std::string>& scripts, size_t starting, bool reset)
{
    const host_options options{.directory = new_directory()};
    counter_watch watch(*options.directory);
    std::vector<host_run> hosts(scripts.size());
    std::vector<std::function<void()>> bodies;
    const host_settings settings = with(way.settings, {{"ostrum_var_trace_opcodes", "5"},
                                                       {"ostrum_data_file_reset", reset ? "yes" : nullptr}});
    for (size_t n = 0; n < scripts.size(); ++n) {
        bodies.emplace_back([&, n] { hosts[n] = run_watched(settings, scripts[n], options); });
    }
    at_once(bodies);
    watch.stop();
    EXPECT_EQ(watch.variables_named("time_on"), 1);
    EXPECT_EQ(watch.variables_named("trace_opcodes"), 1);
    const observed_run all = look_at(hosts);
    EXPECT_EQ(all.misread, "");
    for (size_t n = 0; n < hosts.size(); ++n) {
        const int opcode = 10 + static_cast<int>(n);
        if (reset) { // counters and variables of hosts at work come and go with each that starts
            expect_came_through(hosts[n], header_lock_ms);
            continue;
        }
        expect_at_work(all, hosts[n], opcode, header_lock_ms);
        if (n + starting >= hosts.size()) {
            EXPECT_EQ(watch.calls_of(static_cast<uint64_t>(opcode)), outermost_of_some_work) << opcode;
        }
    }
    if (!reset) {
        expect_nothing_harmed(all, false);
        EXPECT_EQ(watch.fallen(), "");
    }
}

using StartContention = unsanitized_test;

} // namespace

TEST_F(StartContention, FirstStartsAtOnce)
{
    case_count runs;
    for (int round = 0; round < 10; ++round) {
        for (const writing& way : ways_of_several()) {
            for (const bool reset : {false, true}) {
                for (const int hosts : {2, 4, 8}) {
                    if (!runs.next(45)) {
                        continue;
                    }
                    SCOPED_TRACE(std::to_string(hosts) + " hosts, " + way.name + (reset ? ", reset" : ""));
                    std::vector<std::string> scripts;
                    for (int n = 0; n < hosts; ++n) {
                        scripts.push_back(host_that_starts(10 + n, hosts, 0));
                    }
                    run_hosts(way, scripts, scripts.size(), reset);
                }
            }
        }
    }
}

// A holder keeps the lock for so long each time that others wait for it, or longer than a start waits.
TEST_F(StartContention, WhileLocksAreHeldAndWaitedFor)
{
    case_count runs;
    for (const char* lock : {"trace", "tables", "metrics", "counter", "variable"}) {
        for (const char* event : {"locked_", "unlocking_"}) {
            for (const int held_ms : {1, 20, 90, 150, 400}) {
                for (const int late_ms : {0, 1, 5, 30, 60, 120}) {
                    if (!runs.next(60)) {
                        continue;
                    }
                    const std::string fault = "fault " + std::string(event) + lock + " 1 " +
                                              std::to_string(fault_hold - held_ms) + "; ";
                    SCOPED_TRACE(fault + std::to_string(late_ms) + " ms later");
                    const std::string holder = "init; " + work_of(10) + "meet start 4; " + fault +
                                               "during 100 {" + work_of(10) +
                                               "; variable v 1; query}; exit 5";
                    run_hosts(ways_of_several()[1],
                              {holder, host_at_work(11, 4, held_ms + 100), host_that_starts(12, 4, late_ms),
                               host_that_starts(13, 4, late_ms)},
                              2, false);
                }
            }
        }
    }
}
