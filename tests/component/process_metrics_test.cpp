// Samples of real processes, the rules of the metrics area, and SIGHUP.
#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <iterator>
#include <memory>
#include <numeric>
#include <regex>
#include <sstream>
#include <thread>
#include <tuple>

#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "data_file/locks.h"
#include "process_metrics/metrics_area.h"
#include "process_metrics/proc_info.h"
#include "process_metrics/sampler.h"
#include "process_state/signals.h"
#include "support/run_host.h"
#include "support/tracing_fixture.h"
#include "util/diagnostics.h"

namespace {

using namespace ostrum;
using fake_os::captured_stderr;
using testing::ContainsRegex;

// A child that has run the body and stands still.
class still_child {
public:
    template <typename Body>
    explicit still_child(Body body) : pid(fork())
    {
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            body();
            raise(SIGSTOP);
        }
        waitpid(pid, nullptr, WUNTRACED);
    }
    ~still_child()
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    still_child(const still_child&) = delete;
    still_child& operator=(const still_child&) = delete;

    const pid_t pid;
};

void do_nothing()
{}

void use_cpu()
{
    for (const clock_t end = clock() + CLOCKS_PER_SEC / 20; clock() < end;) {
    }
}

using figures = std::array<int64_t, 7>;
figures figures_of(const proc_stat& s)
{
    return {s.pid, s.utime, s.stime, s.processes, s.threads, s.vsize, s.rss};
}

class process_metrics_test : public tracing_fixture {
protected:
    process_metrics_test()
    {
        static int64_t hours = 0; // the time of the next sample outlives a test
        fake_os::advance_clock(++hours * 3600 * second);
        settings_for_startup().process_data = process_data_on;
        settings_for_startup().status_check_tv = second;
    }

    bool sample(process_metrics_area& record)
    {
        int32_t updated = 7;
        ostrum_get_process_data(&record, &updated);
        return updated == 1;
    }
    uint64_t (&words() const)[26] { return data_file_->image->metrics.words; }

    std::unique_ptr<proc_info> info_ = std::make_unique<proc_info>();
};

TEST_F(process_metrics_test, ASampleHoldsWhatTheSystemShows)
{
    const still_child child([] {
        std::thread([] { pause(); }).detach();
        use_cpu();
    });
    const std::string line = temp_dir::read("/proc/" + std::to_string(child.pid) + "/stat");
    std::istringstream behind_name(line.substr(line.rfind(')') + 1));
    std::vector<std::string> fields{"", "pid", "name"}; // as numbered by the system's manual
    fields.insert(fields.end(), std::istream_iterator<std::string>(behind_name), {});
    const auto field = [&](size_t number) { return std::stoll(fields.at(number)); };
    EXPECT_GT(field(14) + field(15), 0);
    EXPECT_GE(field(20), 2);
    constexpr int64_t tick_tv = second / 50;
    EXPECT_EQ(figures_of(get_proc_stat(child.pid, 50, 1000)),
              (figures{child.pid, field(14) * tick_tv, field(15) * tick_tv, 1, field(20), field(23),
                       field(24) * 1000}));
}

TEST_F(process_metrics_test, WhatCannotBeReadIsAllZero)
{
    const still_child child(do_nothing);
    const still_child blank([] { prctl(PR_SET_NAME, "two words"); });
    const std::tuple<pid_t, int, const char*> cases[] = {
        {-5, 0, "^$"},
        {child.pid, ESRCH, " : get_proc_stat : expected.6] got.-1] errno.3].No such process.\n$"},
        {blank.pid, 0, " : get_proc_stat : expected.6] got.1] errno.0].Success.\n$"},
    };
    for (const auto& [pid, read_error, message] : cases) {
        fake_os::fail(fake_os::call::read_file, read_error != 0 ? 1 : 0, read_error);
        EXPECT_THAT(
            captured_stderr([&, p = pid] { EXPECT_EQ(figures_of(get_proc_stat(p, 100, 4096)), figures{}); }),
            ContainsRegex(message));
    }
}

TEST_F(process_metrics_test, ATreeIsTheProcessAndItsChildrenInOrder)
{
    const still_child parent_too([] {
        if (fork() == 0) {
            _exit(0); // listed with its parent all the same
        }
    });
    const still_child vanishing(do_nothing);
    const still_child last(do_nothing);
    set_debug_bits(debug_detail);
    fake_os::fail(fake_os::call::open_file, 4, ENOENT); // behind the process, the list and the first child
    const std::string text = captured_stderr([&] { get_proc_info(getpid(), info_.get()); });
    ASSERT_EQ(info_->count, 4);
    const pid_t pids[] = {getpid(), parent_too.pid, 0, last.pid};
    figures sum{};
    for (size_t i = 0; i < 4; ++i) {
        const figures record = figures_of(info_->records[i]);
        EXPECT_EQ(record[0], pids[i]);
        std::transform(sum.begin(), sum.end(), record.begin(), sum.begin(), std::plus<>());
    }
    sum[0] = getpid();
    EXPECT_EQ(figures_of(info_->sum), sum);
    EXPECT_EQ(sum[3], 3);
    const std::regex line(
        " : (   SUM|PARENT| CHILD): pid\\[\\d+] => utime\\[\\d+\\.\\d{6}\\) stime\\[\\d+\\.\\d{6}] "
        "vsize\\[ *\\d+\\.\\d Kb] rss\\[ *\\d+\\.\\d Kb] processes\\[     \\d] threads\\[     \\d]\n");
    EXPECT_EQ(std::distance(std::sregex_iterator(text.begin(), text.end(), line), {}), 4) << text;
    for (const int32_t missing : {1, 2}) { // the process itself, the list of its children
        fake_os::fail(fake_os::call::open_file, missing, ENOENT);
        captured_stderr([&] { get_proc_info(getpid(), info_.get()); });
        EXPECT_EQ(info_->count, missing - 1);
        EXPECT_EQ(info_->sum.pid, missing == 1 ? 0 : getpid());
    }
}

TEST_F(process_metrics_test, ChildrenBeyondTheLimitAreLeftOut)
{
    std::array<pid_t, 1100> children{};
    for (pid_t& child : children) {
        child = fork();
        if (child == 0) {
            _exit(0); // stays in the list until it is waited for
        }
    }
    get_proc_info(getpid(), info_.get());
    for (const pid_t child : children) {
        waitpid(child, nullptr, 0);
    }
    EXPECT_EQ(info_->count, 1024);
    EXPECT_EQ(info_->records[1023].pid, children[1022]);
    EXPECT_EQ(info_->sum.processes, 1024);
}

TEST_F(process_metrics_test, ADifferenceIsOfCpuTimesByProcess)
{
    const auto fill = [](std::initializer_list<std::array<int64_t, 3>> records) {
        auto info = std::make_unique<proc_info>();
        for (const auto& [pid, utime, stime] : records) {
            info->records[info->count++] = {static_cast<int32_t>(pid), utime, stime, 1, 3, 1000, 10};
        }
        info->sum = {1, 9, 9, 9, 9, 9, 9};
        return info;
    };
    const auto none = fill({});
    const auto last = fill({{1, 100, 10}, {2, 900, 90}, {2, 200, 20}, {4, 5, 5}});
    const auto now = fill({{1, 130, 15}, {2, 250, 22}, {3, 70, 7}});
    const auto difference = [](const auto& before, const auto& after, int32_t filter) {
        return figures_of(proc_info_diff(before.get(), after.get(), filter));
    };
    EXPECT_EQ(difference(last, now, 0), (figures{0, 150, 14, 3, 9, 3000, 30})) << "of two the second counts";
    EXPECT_EQ(difference(none, now, 0), (figures{0, 450, 44, 3, 9, 3000, 30}));
    EXPECT_EQ(difference(last, now, 2), (figures{0, 50, 2, 1, 3, 1000, 10}));
    EXPECT_EQ(difference(last, now, 4), figures{});
    EXPECT_EQ(difference(last, none, 0), figures{});
}

TEST_F(process_metrics_test, OneSampleAnIntervalIsTaken)
{
    set_debug_bits(debug_general);
    process_metrics_area first;
    process_metrics_area early;
    const process_metrics_area zero{};
    const still_child child(use_cpu);
    ASSERT_TRUE(sample(first));
    get_proc_info(getpid(), info_.get());
    EXPECT_EQ(first.words[5], 1U);
    EXPECT_EQ(first.words[6], static_cast<uint64_t>(info_->sum.threads));
    EXPECT_NEAR(static_cast<double>(first.words[4]), static_cast<double>(info_->sum.vsize), 1e7);
    EXPECT_LT(first.words[3], first.words[4]);
    EXPECT_EQ(first.words[0] + first.words[7] + first.words[25], 0U);
    EXPECT_GE(first.words[1] + first.words[2], 40U * ms) << "of the child, which was not there before";

    fake_os::advance_clock(second); // not over before the next nanosecond
    const std::string text = captured_stderr([&] { EXPECT_FALSE(sample(early)); });
    EXPECT_EQ(memcmp(&early, &zero, sizeof(zero)), 0);
    EXPECT_THAT(text, ContainsRegex(" : ostrum_get_process_data : now_tv\\[(15/11/2025 1.:15:01.000000)] < "
                                    "next_tv\\[15/11/2025 1.:15:01.000000] - process metrics not updated\n"));
    fake_os::advance_clock(1);
    process_metrics_area next;
    EXPECT_TRUE(sample(next));
    EXPECT_LT(next.words[1] + next.words[2], 40U * ms) << "what was used since";

    fake_os::advance_clock(3600 * second);
    settings_for_startup().process_data = process_data_register;
    EXPECT_EQ(captured_stderr([&] { EXPECT_FALSE(sample(next)); }), "");
    EXPECT_EQ(memcmp(&next, &zero, sizeof(zero)), 0);
}

TEST_F(process_metrics_test, EachWordHasItsRule)
{
    process_metrics_area record;
    for (uint64_t i = 0; i < 26; ++i) {
        words()[i] = 100 + i;
        record.words[i] = 7000 + i;
    }
    words()[7] = 0;
    const std::pair<uint64_t, bool> updates[] = {{0, false}, {5, true}, {0, true}}; // is_dm: given, then
    uint64_t count = 0;
    for (const auto& [mark, is_dm] : updates) {
        SCOPED_TRACE(++count);
        record.words[7] = mark;
        rt_process_metrics_update(data_file_, &record);
        process_metrics_area copy;
        rt_process_metrics_copy(&copy, data_file_);
        for (uint64_t i = 0; i < 26; ++i) {
            const uint64_t expected = i == 0   ? 100 + count
                                      : i <= 2 ? 100 + i + count * (7000 + i)
                                      : i <= 6 ? 7000 + i
                                      : i == 7 ? (is_dm ? 1 : 0)
                                               : (is_dm ? 7000 : 100) + i;
            EXPECT_EQ(copy.words[i], expected) << "word " << i;
        }
    }
    rt_process_metrics_reset(data_file_);
    for (uint64_t i = 0; i < 26; ++i) {
        EXPECT_EQ(words()[i], i == 7 ? 1U : 0U) << "word " << i;
    }
}

TEST_F(process_metrics_test, ADataManagerIsPublishedWithOrWithoutASample)
{
    uint64_t own[18];
    std::iota(std::begin(own), std::end(own), 8);
    const auto state = [&] { // updates; whether a sample is there; whether the data manager's own words are
        return std::tuple(words()[0], words()[4] > 0,
                          words()[7] == 1 && std::equal(std::begin(own), std::end(own), words() + 8));
    };
    using expected = std::tuple<uint64_t, bool, bool>;
    publish_cm_metrics(data_file_);
    EXPECT_EQ(state(), expected(1, true, false));
    const uint64_t cpu_tv = words()[1] + words()[2];
    publish_cm_metrics(data_file_); // no sample is due
    EXPECT_EQ(state(), expected(1, true, false));
    publish_dm_metrics(data_file_, own);
    EXPECT_EQ(state(), expected(2, false, true));
    EXPECT_EQ(words()[1] + words()[2], cpu_tv);
    fake_os::advance_clock(2 * second);
    publish_dm_metrics(data_file_, own);
    EXPECT_EQ(state(), expected(3, true, true));
    fake_os::advance_clock(2 * second);
    publish_cm_metrics(data_file_);
    EXPECT_EQ(state(), expected(4, true, true));

    settings_for_startup().process_data = 0;
    fake_os::advance_clock(2 * second);
    publish_cm_metrics(data_file_);
    EXPECT_EQ(state(), expected(4, true, true));
    publish_dm_metrics(data_file_, own);
    EXPECT_EQ(state(), expected(5, false, true));
    EXPECT_EQ(words()[3] + words()[4] + words()[5] + words()[6], 0U);
    publish_cm_metrics(nullptr);
    publish_dm_metrics(nullptr, own);
}

// The handler takes the lock of the metrics area: it may not come while its own thread has it.
TEST_F(process_metrics_test, TheSignalWaitsUntilTheLockIsGivenBack)
{
    __perf_data_file_lock(data_file_, DATA_FILE_LOCK_METRICS);
    std::atomic<pid_t> tid{0};
    std::thread updater([&] {
        tid = gettid();
        rt_process_metrics_reset(data_file_);
    });
    bool held_back = false;
    for (int look = 0; look < 900 && !held_back; ++look) { // the updater waits for 1 s
        usleep(1'000);
        const std::string status = temp_dir::read("/proc/self/task/" + std::to_string(tid) + "/status");
        const size_t blocked = status.find("SigBlk:");
        held_back = blocked != std::string::npos &&
                    (std::stoull(status.substr(blocked + 7), nullptr, 16) & (1U << (SIGHUP - 1))) != 0;
    }
    __perf_data_file_unlock(data_file_, DATA_FILE_LOCK_METRICS);
    updater.join();
    EXPECT_TRUE(held_back);
}

TEST_F(process_metrics_test, TheSignalIsTheLibrarysOnlyWithBothBits)
{
    signal(SIGHUP, SIG_DFL); // hosts inherit it when this program was started with it ignored
    const struct {
        const char *setting, *script;
        uint64_t updates;
        int exit_status;
        const char* output; // 9: the host's own handler
    } cases[] = {
        {"1", "op 3; raise HUP", 0, 128 + SIGHUP, ""},
        {"2", "op 3; raise HUP", 0, 128 + SIGHUP, ""},
        {"3", "on_signal HUP {quick_exit 9}; op 3; raise HUP; raise HUP; exit 4", 1, 4, ""}, // one is not due
        {"3", "op 3; on_signal HUP {quick_exit 9}; fork {raise HUP; quick_exit 5}; exit 4", 1, 4,
         "child=5\n"},
        {"1", "op 3; on_signal HUP {quick_exit 9}; fork {raise HUP; quick_exit 5}; exit 4", 0, 4,
         "child=9\n"},
        {"3", "op 3; on_signal HUP {quick_exit 9}; fork {quick_exit 5}; raise HUP", 0, 9, "child=5\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.setting) + ": " + c.script);
        const host_run run =
            run_host({{"ostrum_get_process_data", c.setting}, {"ostrum_debug", "1"}}, c.script);
        EXPECT_EQ(run.exit_status, c.exit_status) << run.errors;
        EXPECT_EQ(run.output, c.output);
        rt_info* file = __perf_data_file_open(run.directory->file("ostrum_data.dat").c_str(), 0);
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(file->image->metrics.words[0], c.updates);
        __perf_data_file_close(file, 0);
        EXPECT_EQ(run.lines_with("installing 'ostrum_get_process_data' for signal[1](SIGHUP)") > 0,
                  *c.setting == '3');
        EXPECT_EQ(run.lines_with("ostrum_get_proc_data : process[") > 0, c.updates > 0) << run.errors;
    }
}

} // namespace
