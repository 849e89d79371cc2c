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
    std::vector<host_setting> settings = {};
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

bool tells(const observed_run& run, const char* message)
{
    return run.incidents().find(message) != std::string::npos;
}

// Documented: without the exit handler, or without the flusher, what is in memory at exit is lost.
bool finishes_at_exit(const observed_run& run)
{
    return !tells(run, "perf_log_init : failed registering 'atexit'") &&
           !tells(run, "perf_initialise_flushing_thread : pthread_create failed");
}

void expect_next_operation(const observed_run& run, const scenario& s)
{
    // The first is documented too: until the context's next flush.
    const bool lost =
        tells(run, "perf_async_flush_add_lip : out of memory creating new tree") || !finishes_at_exit(run);
    if (!run.enabled()) {
        EXPECT_TRUE(tells(run, "initialise_ostrum : ")) << run.incidents();
        EXPECT_EQ(run.written, 0);
    } else if (!s.exits_meanwhile && !lost) {
        EXPECT_EQ(run.calls.count(last_opcode), 1U) << "the next operation does not work\n"
                                                    << run.incidents();
    }
}

observed_run run_undisturbed(const scenario& s)
{
    observed_run run = run_with(s, {"none", 0}, 0);
    EXPECT_EQ(run.incidents(), "") << s.name;
    EXPECT_EQ(run.written, run.issued) << s.name;
    return run;
}

int failures_so_far()
{
    return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

// Faults that the library itself makes up for.
bool must_lose_nothing(const fault& f)
{
    const std::string call = f.call;
    return f.error == fault_late || ((call == "write" || call == "fcntl" || call == "posix_fallocate") &&
                                     (f.error == EINTR || f.error == fault_short));
}

// Number of runs: until nothing fails any more, or to the first one that the host does not bear.
int fail_each(const scenario& s, const fault& f, const observed_run& undisturbed)
{
    const int failures_before = failures_so_far();
    int nth = 0;
    for (bool hit = true; hit && nth < endless && failures_so_far() == failures_before;) {
        ++nth;
        const observed_run run = run_with(s, f, nth);
        SCOPED_TRACE(std::string(s.name) + ", " + f.call + " number " + std::to_string(nth) + " gives " +
                     std::to_string(f.error) + (f.from_then_on ? " from then on" : ""));
        const observed_run* as_usual = finishes_at_exit(run) ? &undisturbed : nullptr;
        expect_unharmed(run, {.exit_status = status, .undisturbed = as_usual});
        expect_next_operation(run, s);
        if (must_lose_nothing(f)) {
            EXPECT_EQ(run.written, run.issued);
            EXPECT_EQ(run.incidents(), "");
        }
        hit = run.faults_hit > 0;
    }
    EXPECT_LT(nth, endless) << "more and more calls";
    return nth;
}

const std::vector<host_setting> small_files{{"ostrum_max_log_size", "5"},
                                            {"ostrum_status_check_frequency", "0"}};

std::vector<host_setting> with(std::vector<host_setting> settings, const std::vector<host_setting>& more)
{
    settings.insert(settings.end(), more.begin(), more.end());
    return settings;
}

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

class HostFaults : public testing::Test {
protected:
    void SetUp() override
    {
        if (sanitized()) {
            GTEST_SKIP()
                << "the sanitizer has the allocator and the calls itself; the release build runs this";
        }
    }
};

TEST_F(HostFaults, EveryAllocation)
{
    int runs = 0;
    for (const scenario& s : scenarios()) {
        const observed_run undisturbed = run_undisturbed(s);
        for (const bool from_then_on : {false, true}) {
            runs += fail_each(s, {"heap", ENOMEM, from_then_on}, undisturbed);
        }
    }
    std::cout << runs << " runs\n";
}

namespace {

// Everything that calls the system: start-up, both kinds of contexts, flushes with a file that reaches its
// limit, lists, idle waits, queries.
constexpr const char* life =
    "init; op 3 7; start 3; start 5; end; end; op_key 7 3; variable flist_on 2; repeat 7 {flist_op 5};"
    "thread {op 4}; select 1; query; raise HUP";
const std::vector<host_setting> life_settings = with(small_files, {{"ostrum_get_process_data", "3"},
                                                                   {"ostrum_error_counter_level", "63"},
                                                                   {"ostrum_opcode_bucket_file", "buckets"}});
const std::vector<host_setting> shared_file = {{"ostrum_log_single_file", "all"},
                                               {"ostrum_log_max_single_file_size", "600"}};

const std::vector<scenario>& lives()
{
    static const std::vector<scenario> all{
        {"life", "on_signal HUP {}; ", life, life_settings},
        {"life with a flusher and a shared file", "on_signal HUP {}; ", life,
         with(with(life_settings, shared_file), {{"ostrum_async_flushing", "1"}})},
    };
    return all;
}

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
    unsigned number = 0;
    int runs = 0;
    for (const scenario& s : lives()) {
        const observed_run undisturbed = run_undisturbed(s);
        for (const failing_call& call : system_calls) {
            // to go when a rotation tells an unknown state from a missing file
            if (call.name == std::string("stat") && s.settings.size() > life_settings.size()) {
                continue;
            }
            for (const int result : call.results) {
                const bool always = &s == lives().data() && must_lose_nothing({call.name, result});
                if (takes_part(number++, 8) || always) {
                    runs += fail_each(s, {call.name, result}, undisturbed);
                }
                if (result > 0 && result != EINTR && takes_part(number++, 8)) {
                    runs += fail_each(s, {call.name, result, true}, undisturbed);
                }
            }
        }
    }
    std::cout << runs << " runs\n";
}
