// kill -9 reaches one of several hosts, at any time and while it holds a lock; then it starts again.
#include <algorithm>

#include "robustness/fault_shim.h"
#include "robustness/several_hosts.h"

namespace {

constexpr int survivors = 3;
constexpr int victims_opcode = 20;
constexpr int killed = 128 + SIGKILL;

constexpr size_t shared_file = 1; // so are all odd ones of ways()

std::string victim(const std::string& death)
{
    const std::string work = work_of(victims_opcode);
    return "init; " + work + "meet start " + std::to_string(survivors + 1) + "; " + death +
           "; during 3000 {repeat 5 {" + work + "}; variable v20 1; query}; exit 7";
}

struct death {
    std::string commands;
    int limit_ms; // for the slowest hook of a survivor
};

// The victim's place is taken as soon as it is dead, or when the others have ended.
void kill_and_restart(const writing& way, const death& d, bool restart_at_once = true, int work_ms = 150)
{
    SCOPED_TRACE(d.commands + ", " + way.name + (restart_at_once ? "" : ", started again late"));
    const host_options options{.directory = new_directory()};
    counter_watch watch(*options.directory);
    std::vector<host_run> hosts(survivors + 2);
    host_run& next = hosts[survivors];
    host_run& dead = hosts[survivors + 1];
    const auto survive = [&](int n) {
        return [&, n] {
            hosts[static_cast<size_t>(n)] =
                run_watched(way.settings, host_at_work(10 + n, survivors + 1, work_ms), options);
        };
    };
    const auto restart = [&] { next = run_watched(way.settings, next_host, options); };
    const auto die = [&] {
        dead = run_watched(way.settings, victim(d.commands), options);
        if (restart_at_once) {
            restart();
        }
    };
    at_once({survive(0), survive(1), survive(2), die});
    if (!restart_at_once) {
        restart();
    }
    watch.stop();
    ASSERT_EQ(dead.exit_status, killed) << "the victim has not been killed";
    const observed_run all = look_at(hosts);
    long slowest_us = 0;
    for (int n = 0; n < survivors; ++n) {
        const host_run& survivor = hosts[static_cast<size_t>(n)];
        expect_at_work(all, survivor, 10 + n, d.limit_ms);
        slowest_us = std::max(slowest_us, reported(survivor, "slowest_us"));
    }
    EXPECT_TRUE(restart_at_once || slowest_us >= 1'000'000) << "the lock has not been waited for";
    expect_next_host(all, next, watch);
    expect_nothing_harmed(all, true);
}

std::string die_at(const std::string& call, int nth)
{
    return "fault " + call + " " + std::to_string(nth) + " " + std::to_string(fault_kill);
}

struct kill_point {
    const char* call;
    int limit_ms;
    bool shared_file_only = false;
    std::vector<int> nths = {1, 12};
};

// With the lock of its name held; the others are calls under the lock of the shared trace file.
const kill_point kill_points[] = {
    {"locked_trace", header_lock_ms, true}, {"unlocking_trace", header_lock_ms, true},
    {"locked_tables", header_lock_ms},      {"unlocking_tables", header_lock_ms},
    {"locked_metrics", header_lock_ms},     {"unlocking_metrics", header_lock_ms},
    {"locked_counter", nested_locks_ms},    {"unlocking_counter", nested_locks_ms},
    {"locked_variable", nested_locks_ms},   {"unlocking_variable", nested_locks_ms},
    {"open", header_lock_ms, true},         {"write", header_lock_ms, true},
    {"rename", header_lock_ms, true, {1}}, // a file is renamed once a second at most
};

using KilledHosts = unsanitized_test;

} // namespace

TEST_F(KilledHosts, AtKillPointsInLockedRegions)
{
    case_count runs;
    for (size_t way = 0; way < ways().size(); ++way) { // advisory locks end with their process
        for (const kill_point& point : kill_points) {
            for (const int nth : point.nths) {
                const bool possible = way % 2 == shared_file || !point.shared_file_only;
                if (possible && runs.next(30)) {
                    kill_and_restart(ways_of_several()[way], {die_at(point.call, nth), point.limit_ms});
                }
            }
        }
    }
}

TEST_F(KilledHosts, AtAnyTime)
{
    case_count runs;
    for (const writing& way : ways_of_several()) {
        for (int moment = 0; moment < 45; ++moment) {
            if (runs.next(60)) {
                const std::string after_us = std::to_string(moment * 2111 % 40'000);
                kill_and_restart(way, {"spawn {pause " + after_us + "; raise KILL}", nested_locks_ms});
            }
        }
    }
}

// Nobody mends the lock while they go on: it is waited for in full, once, then only tried.
TEST_F(KilledHosts, AreNotWaitedForLongerThanTheLimit)
{
    const kill_point points[] = {{"locked_tables", header_lock_ms},
                                 {"unlocking_counter", nested_locks_ms},
                                 {"locked_trace", trace_lock_ms}};
    case_count runs;
    for (const kill_point& point : points) {
        const bool takes_long = point.limit_ms == trace_lock_ms;
        if ((long_form() || !takes_long) && runs.next(2)) {
            kill_and_restart(ways_of_several()[shared_file], {die_at(point.call, 5), point.limit_ms}, false,
                             takes_long ? 11'000 : 2500);
        }
    }
}

// Each call of a start-up is the last one; whoever starts next gets a complete data file.
TEST_F(KilledHosts, WhileTheyStart)
{
    case_count runs;
    int refused = 0;
    for (const char* call : {"qel_conf", "open", "fcntl", "lseek", "write", "posix_fallocate", "mmap",
                             "locked_tables", "unlocking_tables", "locked_variable", "unlocking_variable"}) {
        bool hit = true;
        const int step = long_form() ? 1 : 4;
        for (int nth = 1 + static_cast<int>(seed()) % step; hit; nth += step) {
            SCOPED_TRACE(die_at(call, nth));
            const host_options options{.directory = new_directory()};
            const host_settings& settings = ways()[shared_file].settings;
            hit = run_watched(settings, die_at(call, nth) + "; init; exit 7", options).exit_status == killed;
            counter_watch watch(*options.directory);
            const host_run next = run_watched(settings, next_host, options);
            watch.stop();
            runs.next();
            // Documented: the file has its size from the second call on.
            if (next.lines_with("] size[0] - correct[") > 0) {
                ++refused;
                continue;
            }
            const observed_run all = look_at({next});
            expect_next_host(all, next, watch);
            expect_nothing_harmed(all, false);
        }
    }
    EXPECT_LE(refused, 4);
}

// A child of a host, on the file that the host shares with its children; nobody waits for its lock.
TEST_F(KilledHosts, InTheMidstOfAWrite)
{
    const observed_run run =
        observe(ways_of_several().back().settings, "init; repeat 2 {op 10}; fork {" + die_at("write", 2) +
                                                       "; repeat 20 {op 20}}; repeat 20 {op 10}; exit 5");
    EXPECT_NE(run.host.output.find("child=137"), std::string::npos) << run.host.output;
    EXPECT_EQ(run.calls.at(10), run.issued);
    EXPECT_EQ(run.broken_lines, 1) << "the child's last line; the parent's next one stands by itself";
    observed_run parents = run;
    parents.issued = run.written;
    expect_unharmed(parents, {.exit_status = 5, .may_cut = true, .killed = 1});
}
