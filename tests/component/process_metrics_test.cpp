// Samples of real processes, the rules of the metrics area, and SIGHUP.
#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <iterator>
#include <memory>
#include <numeric>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "process_metrics/metrics_area.h"
#include "process_metrics/proc_info.h"
#include "process_metrics/sampler.h"
#include "process_state/signals.h"
#include "support/run_host.h"
#include "support/tracing_fixture.h"
#include "util/diagnostics.h"

namespace {

using namespace ostrum;
using testing::ContainsRegex;
using testing::EndsWith;

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
    ~process_metrics_test() override { set_debug_bits(0); }

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
    const struct {
        pid_t pid;
        int read_error;
        const char* message;
    } cases[] = {
        {-5, 0, ""},
        {child.pid, ESRCH, "get_proc_stat : expected[6] got[-1] errno[3](No such process)\n"},
        {blank.pid, 0, "get_proc_stat : expected[6] got[1] errno[0](Success)\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        if (c.read_error != 0) {
            fake_os::fail(fake_os::call::read_file, 1, c.read_error);
        }
        const std::string text = fake_os::captured_stderr(
            [&] { EXPECT_EQ(figures_of(get_proc_stat(c.pid, 100, 4096)), figures{}); });
        EXPECT_THAT(text, EndsWith(c.message));
        EXPECT_EQ(count_of(text, "\n"), *c.message != '\0' ? 1 : 0);
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
    const std::string text = fake_os::captured_stderr([&] { get_proc_info(getpid(), info_.get()); });
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
    EXPECT_EQ(count_of(text, " :    SUM: pid[") + count_of(text, " : PARENT: pid["), 2);
    EXPECT_EQ(count_of(text, "\n"), 4);
    EXPECT_THAT(text, ContainsRegex(" :  CHILD: pid\\[" + std::to_string(last.pid) +
                                    "] => utime\\[[0-9]+\\.[0-9]{6}\\) stime\\[[0-9]+\\.[0-9]{6}] "
                                    "vsize\\[ *[0-9]+\\.[0-9] Kb] rss\\[ *[0-9]+\\.[0-9] Kb] "
                                    "processes\\[     1] threads\\[     [0-9]]\n"));
    set_debug_bits(0);
    for (const int32_t missing : {1, 2}) { // the process itself, the list of its children
        fake_os::fail(fake_os::call::open_file, missing, ENOENT);
        get_proc_info(getpid(), info_.get());
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
    const struct {
        const proc_info* before;
        const proc_info* after;
        int32_t filter;
        figures expected;
    } cases[] = {
        {last.get(), now.get(), 0, {0, 150, 14, 3, 9, 3000, 30}}, // of two last ones the second counts
        {none.get(), now.get(), 0, {0, 450, 44, 3, 9, 3000, 30}},
        {last.get(), now.get(), 2, {0, 50, 2, 1, 3, 1000, 10}},
        {last.get(), now.get(), 4, {}},
        {last.get(), none.get(), 0, {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(figures_of(proc_info_diff(c.before, c.after, c.filter)), c.expected);
    }
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
    const std::string text = fake_os::captured_stderr([&] { EXPECT_FALSE(sample(early)); });
    EXPECT_EQ(memcmp(&early, &zero, sizeof(zero)), 0);
    EXPECT_THAT(text, ContainsRegex(" : ostrum_get_process_data : now_tv\\[(15/11/2025 1.:15:01.000000)] < "
                                    "next_tv\\[15/11/2025 1.:15:01.000000] - process metrics not updated\n"));
    fake_os::advance_clock(1);
    process_metrics_area next;
    EXPECT_TRUE(sample(next));
    EXPECT_LT(next.words[1] + next.words[2], 40U * ms) << "what was used since";

    fake_os::advance_clock(3600 * second);
    settings_for_startup().process_data = process_data_register;
    EXPECT_EQ(fake_os::captured_stderr([&] { EXPECT_FALSE(sample(next)); }), "");
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
    const struct {
        uint64_t mark; // the record's is_dm
        uint64_t is_dm;
        uint64_t dm_words;
    } updates[] = {{0, 0, 100}, {5, 1, 7000}, {0, 1, 7000}};
    uint64_t count = 0;
    for (const auto& update : updates) {
        SCOPED_TRACE(++count);
        record.words[7] = update.mark;
        rt_process_metrics_update(data_file_, &record);
        process_metrics_area copy;
        rt_process_metrics_copy(&copy, data_file_);
        const uint64_t expected[] = {100 + count, 100 + count * 7000, 7000, update.is_dm, update.dm_words};
        for (uint64_t i = 0; i < 26; ++i) {
            const size_t kind = i == 0 ? 0 : i <= 2 ? 1 : i <= 6 ? 2 : i == 7 ? 3 : 4;
            const uint64_t own = kind == 1 ? i + i * count : kind % 2 == 0 ? i : 0;
            EXPECT_EQ(copy.words[i], expected[kind] + own) << "word " << i;
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
    const auto has_own_words = [&] { return std::equal(std::begin(own), std::end(own), words() + 8); };
    publish_cm_metrics(data_file_);
    const process_metrics_area first = data_file_->image->metrics;
    EXPECT_EQ(first.words[0], 1U);
    EXPECT_GT(first.words[4], 0U);
    publish_cm_metrics(data_file_); // not due
    EXPECT_EQ(memcmp(&first, words(), sizeof(first)), 0);
    EXPECT_EQ(words()[7] + words()[8], 0U);

    publish_dm_metrics(data_file_, own); // not due either
    EXPECT_EQ(words()[0], 2U);
    EXPECT_EQ(words()[1] + words()[2], first.words[1] + first.words[2]);
    EXPECT_EQ(words()[3] + words()[4] + words()[5] + words()[6], 0U);
    EXPECT_TRUE(words()[7] == 1 && has_own_words());
    for (const bool data_manager : {true, false}) {
        fake_os::advance_clock(2 * second);
        data_manager ? publish_dm_metrics(data_file_, own) : publish_cm_metrics(data_file_);
        EXPECT_GT(words()[4], 0U);
    }
    settings_for_startup().process_data = 0;
    fake_os::advance_clock(2 * second);
    publish_cm_metrics(data_file_);
    EXPECT_GT(words()[4], 0U);
    EXPECT_EQ(words()[0], 4U);
    publish_dm_metrics(data_file_, own);
    EXPECT_EQ(words()[0], 5U);
    EXPECT_EQ(words()[4], 0U);
    EXPECT_TRUE(words()[7] == 1 && has_own_words());
    publish_cm_metrics(nullptr);
    publish_dm_metrics(nullptr, own);
}

volatile sig_atomic_t changed_errnos = 0;
void sample_at_signal(int signal_number)
{
    const int before = std::exchange(errno, 4242);
    ostrum_get_proc_data(signal_number);
    changed_errnos = changed_errnos + (std::exchange(errno, before) != 4242 ? 1 : 0);
}

TEST_F(process_metrics_test, AStormOfSignalsBlocksNobody)
{
    set_variable("time_on", "3");
    settings_for_startup().status_check_tv = 0;
    ASSERT_EQ(__set_signal_handler(SIGHUP, sample_at_signal), 0);
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGHUP;
    timer_t timer{};
    ASSERT_EQ(timer_create(CLOCK_MONOTONIC, &event, &timer), 0);
    const itimerspec every_ms{{0, 1'000'000}, {0, 1'000'000}};
    timer_settime(timer, 0, &every_ms, nullptr);

    using clock = std::chrono::steady_clock;
    const clock::time_point end = clock::now() + std::chrono::seconds(1);
    clock::duration longest{};
    uint64_t own = 0;
    for (clock::time_point now = clock::now(); now < end; ++own) {
        run({}, 1); // the hour never ends
        process_metrics_area record{};
        rt_process_metrics_copy(&record, data_file_);
        rt_process_metrics_update(data_file_, &record);
        const clock::time_point before = std::exchange(now, clock::now());
        longest = std::max(longest, now - before);
    }
    timer_delete(timer);
    signal(SIGHUP, SIG_DFL);
    EXPECT_GT(words()[0], own + 50) << "published by the handler";
    EXPECT_EQ(node(3)->main.total_calls, static_cast<int64_t>(own));
    EXPECT_EQ(changed_errnos, 0);
    EXPECT_LT(longest, std::chrono::milliseconds(900)) << "a lock that is never had is given up after 1 s";
}

TEST_F(process_metrics_test, TheSignalIsTheLibrarysOnlyWithBothBits)
{
    signal(SIGHUP, SIG_DFL); // hosts inherit it when this program was started with it ignored
    const struct {
        const char* setting;
        const char* script;
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
        EXPECT_EQ(
            run.lines_with("perf_log_init : installing 'ostrum_get_process_data' for signal[1](SIGHUP)") > 0,
            *c.setting == '3');
        EXPECT_EQ(run.lines_with("ostrum_get_proc_data : process[") > 0, c.updates > 0) << run.errors;
    }
}

} // namespace
