// Every call that the library makes fails once: the Nth of its kind, for N from 1 until none fails any more.
#include <cerrno>

#include <gtest/gtest.h>

#include "robustness/fault_shim.h"
#include "robustness/host_oracle.h"

namespace {

// A script in three parts; the fault is armed for the middle one only.
struct scenario {
    const char* name;
    const char* before;
    const char* during;
    host_settings settings = {};
    bool exits_meanwhile = false;
};

struct fault {
    const char* call;
    int error;
    bool from_then_on = false;
};

constexpr const char* bucket_file = "3 0.000001 0.1\n* 1\n";
constexpr int last_opcode = 9; // of an operation behind every fault
constexpr int status = 5;
constexpr int endless = 2'000;

observed_run run_with(const scenario& s, const fault& f, int nth)
{
    const auto directory = std::make_shared<temp_dir>();
    directory->write("buckets", bucket_file);
    const std::string armed = "fault " + std::string(f.call) + " " + std::to_string(nth) + " " +
                              std::to_string(f.error) + (f.from_then_on ? " 1; " : "; ");
    const std::string after =
        s.exits_meanwhile ? "" : "; fault none 0 0; op " + std::to_string(last_opcode) + "; query; exit 5";
    return observe(s.settings, s.before + armed + s.during + after, {.directory = directory});
}

// Documented: without the exit handler, or without the flusher, what is in memory at exit is lost.
bool finishes_at_exit(const observed_run& run)
{
    return !run.tells("perf_log_init : failed registering 'atexit'") &&
           !run.tells("perf_initialise_flushing_thread : pthread_create failed");
}

void expect_next_operation(const observed_run& run, const scenario& s)
{
    // The first is documented too: until the context's next flush.
    const bool lost =
        run.tells("perf_async_flush_add_lip : out of memory creating new tree") || !finishes_at_exit(run);
    if (!run.enabled()) {
        EXPECT_TRUE(run.tells("initialise_ostrum : ")) << run.incidents();
        EXPECT_EQ(run.written, 0);
    } else if (!s.exits_meanwhile && !lost) {
        EXPECT_EQ(run.calls_of(last_opcode), 1) << "the next operation does not work\n" << run.incidents();
    }
}

observed_run run_undisturbed(const scenario& s)
{
    SCOPED_TRACE(s.name);
    observed_run run = run_with(s, {"none", 0}, 0);
    expect_unharmed(run, {.exit_status = status, .complete = true});
    return run;
}

// Faults that the library itself makes up for.
bool must_lose_nothing(const fault& f)
{
    const std::string call = f.call;
    return f.error == fault_late || ((call == "write" || call == "fcntl" || call == "posix_fallocate") &&
                                     (f.error == EINTR || f.error == fault_short));
}

// One more run after the other until nothing fails any more, or to the first one that the host does not bear.
void fail_each(const scenario& s, const fault& f, const observed_run& undisturbed, case_count& runs)
{
    const testing::TestResult& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
    const int failures_before = result.total_part_count();
    int nth = 0;
    for (bool hit = true; hit && nth < endless && result.total_part_count() == failures_before;) {
        const observed_run run = run_with(s, f, ++nth);
        SCOPED_TRACE(std::string(s.name) + ", " + f.call + " number " + std::to_string(nth) + " gives " +
                     std::to_string(f.error) + (f.from_then_on ? " from then on" : ""));
        expect_unharmed(run, {.exit_status = status,
                              .complete = must_lose_nothing(f),
                              .undisturbed = finishes_at_exit(run) ? &undisturbed : nullptr});
        expect_next_operation(run, s);
        hit = run.faults_hit > 0;
    }
    EXPECT_LT(nth, endless) << "more and more calls";
    runs.add(nth - 1);
}

const host_settings small_files{{"ostrum_max_log_size", "5"}, {"ostrum_status_check_frequency", "0"}};

const std::vector<scenario>& scenarios()
{
    static const std::vector<scenario> all{
        // A setting that there is no memory for counts as unset: the timing is switched on behind.
        {"start-up",
         "",
         "init; fault none 0 0; variable time_on 3",
         {{"ostrum_opcode_bucket_file", "buckets"}}},
        {"first operation", "init; ", "op 3"},
        {"nested with buckets",
         "init; op 1; ",
         "start 3; start 5; start_fn f; end_fn f; end; end; op_key 7 3",
         {{"ostrum_opcode_bucket_file", "buckets"}}},
        {"flush", "repeat 4 {op 3}; ", "repeat 8 {op 3}", small_files},
        {"asynchronous flush", "repeat 4 {op 3}; ", "repeat 8 {op 3}",
         with(small_files, {{"ostrum_async_flushing", "1"}})},
        {"queries", "op 3; op 4 7; ", "query; ", {{"ostrum_error_counter_level", "63"}}},
        {"variables", "op 1; ", "variable trace_opcodes 3,5; variable flist_on 2; variable own x; flist_op 3",
         small_files},
        {"exit", "op 3; op_key 1 4; ", "exit 5", {}, true},
    };
    return all;
}

} // namespace

using HostFaults = unsanitized_test;

TEST_F(HostFaults, EveryAllocation)
{
    case_count runs;
    for (const scenario& s : scenarios()) {
        const observed_run undisturbed = run_undisturbed(s);
        for (const bool from_then_on : {false, true}) {
            runs.next();
            fail_each(s, {"heap", ENOMEM, from_then_on}, undisturbed, runs);
        }
    }
}

namespace {

// Everything that calls the system: start-up, both kinds of contexts, flushes with a file that reaches its
// limit, lists, idle waits, queries.
constexpr const char* life =
    "init; op 3 7; start 3; start 5; end; end; op_key 7 3; variable flist_on 2; repeat 7 {flist_op 5};"
    "thread {op 4}; select 1; query; raise HUP";
const host_settings life_settings = with(small_files, {{"ostrum_get_process_data", "3"},
                                                       {"ostrum_error_counter_level", "63"},
                                                       {"ostrum_opcode_bucket_file", "buckets"}});
const scenario lives[] = {
    {"life", "on_signal HUP {}; ", life, life_settings},
    {"life with a flusher and a shared file", "on_signal HUP {}; ", life,
     with(life_settings, {{"ostrum_log_single_file", "all"},
                          {"ostrum_log_max_single_file_size", "600"},
                          {"ostrum_async_flushing", "1"}})},
};

struct failing_call {
    const char* name;
    std::vector<int> results; // each once; errnos above 0 also from then on, but for EINTR
};

const failing_call system_calls[] = {
    {"open", {EMFILE, EACCES, EINTR, ENOSPC}},
    {"close", {EIO, EINTR}},
    {"read", {EIO, EINTR, fault_short, fault_nothing}},
    {"write", {ENOSPC, EIO, EAGAIN, EINTR, fault_short, fault_nothing, fault_late}},
    {"lseek", {EINVAL}},
    {"ftruncate", {EIO}},
    {"posix_fallocate", {ENOSPC, EINTR, EOPNOTSUPP}},
    {"mmap", {ENOMEM, ENODEV}},
    {"stat", {EACCES, EIO}},
    {"lstat", {EACCES}},
    {"fstat", {EIO}},
    {"rename", {EACCES, ENOSPC}},
    {"fcntl", {EINTR, ENOLCK, EDEADLK}},
    {"clock_gettime", {EPERM}},
    {"gettimeofday", {EPERM}},
    {"getrusage", {EINVAL}},
    {"select", {EINTR}}, // any other result is the host's own
    {"sigaction", {EINVAL}},
    {"pthread_create", {EAGAIN}},
    {"pthread_key_create", {EAGAIN, ENOMEM}},
    {"__cxa_atexit", {ENOMEM}},
    {"__register_atfork", {ENOMEM}},
    {"qel_conf", {EIO}},
    {"qel_flist_to_str_masked", {EIO, fault_late}},
    {"qel_flist_elem_count", {EIO}},
    {"qellog_get_correlation", {EIO, fault_late}},
    {"tbx_opcode_to_opname", {EIO}},
    {"tbx_opname_to_opcode", {EIO}},
};

} // namespace

// In the short form an eighth of the rest, each of it until nothing fails any more.
TEST_F(HostFaults, EverySystemCallAndServiceOfThePlatform)
{
    case_count runs;
    for (const scenario& s : lives) {
        const observed_run undisturbed = run_undisturbed(s);
        for (const failing_call& call : system_calls) {
            // to go when a rotation tells an unknown state from a missing file
            if (call.name == std::string("stat") && &s != lives) {
                continue;
            }
            for (const int result : call.results) {
                const bool always = &s == lives && must_lose_nothing({call.name, result});
                if (runs.next(8, always)) {
                    fail_each(s, {call.name, result}, undisturbed, runs);
                }
                if (result > 0 && result != EINTR && runs.next(8)) {
                    fail_each(s, {call.name, result, true}, undisturbed, runs);
                }
            }
        }
    }
}
