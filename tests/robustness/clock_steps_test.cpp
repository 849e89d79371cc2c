// The wall clock is set while hosts run, local time jumps with daylight saving, and the years go on.
#include <fstream>
#include <iostream>

#include <gtest/gtest.h>

#include "data_file/layout.h"
#include "robustness/host_oracle.h"

namespace {

constexpr int hour_s = 3600;
constexpr long half_past_twelve_s = 1'768'480'200; // 2026-01-15 12:30:00 UTC

const writing both_ways[] = {{"own files", {}},
                             {"shared file, flusher",
                              {{"ostrum_log_single_file", "all"},
                               {"ostrum_log_max_single_file_size", "100000"},
                               {"ostrum_async_flushing", "1"}}}};

std::vector<host_setting> with(std::vector<host_setting> settings, const std::vector<host_setting>& more)
{
    settings.insert(settings.end(), more.begin(), more.end());
    return settings;
}
const std::vector<host_setting> always_checking{{"ostrum_status_check_frequency", "0"}};

// "START.END" of every trace file of the run that shows the operation.
std::vector<std::string> periods_with(const observed_run& run, int opcode)
{
    const std::string shown = "\nS,1,0," + std::to_string(opcode) + ",";
    std::vector<std::string> periods;
    for (const std::string& file : run.host.files_ending(".plog.txt")) {
        constexpr size_t period_characters = 31;
        const size_t end = file.size() - std::string(".plog.txt").size();
        if (temp_dir::read(file).find(shown) != std::string::npos) {
            periods.push_back(file.substr(end - period_characters, period_characters));
        }
    }
    return periods;
}

// The longest time that any counter of the data file has added up.
double counted_s(const observed_run& run)
{
    const auto image = std::make_unique<ostrum::data_file_image>();
    std::ifstream(run.host.directory->file("ostrum_data.dat"), std::ios::binary)
        .read(reinterpret_cast<char*>(image.get()), sizeof(*image));
    uint64_t longest_tv = 0;
    for (size_t i = 0; i < std::min(image->counter_count, ostrum::max_counters); ++i) {
        longest_tv = std::max(longest_tv, image->counters[i].total_t);
    }
    return static_cast<double>(longest_tv) / 1e9;
}

class ClockSteps : public testing::Test {
protected:
    void SetUp() override
    {
        if (sanitized()) {
            GTEST_SKIP() << "the sanitizer reads the clock itself; the release build runs this";
        }
    }
};

} // namespace

// Whenever the clock is set, nothing is lost or waited for, and what seems to take less than no time takes
// none.
TEST_F(ClockSteps, AnHourEitherWayAtEachReadingOfTheClock)
{
    const std::string life =
        "init; op 1 7; start 1; start 2; end; end; op_key 7 1; variable flist_on 2; flist_op 1;"
        "thread {op 1}; select 1; query; repeat 3 {op 9}; exit 5";
    int runs = 0;
    for (const writing& w : both_ways) {
        for (const int step_s : {hour_s, -hour_s}) {
            bool read = true;
            for (unsigned nth = 1; read; ++nth) {
                if (!takes_part(nth, 8)) {
                    continue;
                }
                SCOPED_TRACE(std::string(w.name) + ", " + std::to_string(step_s) + " s at reading " +
                             std::to_string(nth));
                const observed_run run =
                    observe(with(w.settings, always_checking),
                            "clock_at " + std::to_string(half_past_twelve_s) + "; clock_step " +
                                std::to_string(step_s) + " " + std::to_string(nth) + "; " + life);
                expect_unharmed(run, {.exit_status = 5});
                EXPECT_EQ(run.incidents(), "");
                EXPECT_EQ(run.written, run.issued);
                const double most_s = step_s > 0 ? hour_s + 60 : 60;
                EXPECT_LT(run.longest_s, most_s);
                EXPECT_LT(counted_s(run), most_s);
                EXPECT_LT(run.host.took_s, 10);
                read = reported(run.host, "clock_steps") > 0;
                ++runs;
            }
        }
    }
    std::cout << runs << " runs\n";
}

// By the default look at the clock, once in half a second of it, an hour back would be an hour without a
// look.
TEST_F(ClockSteps, AreNoticedAtTheNextLook)
{
    for (const writing& w : both_ways) {
        for (const int step_s : {hour_s, -hour_s}) {
            SCOPED_TRACE(std::string(w.name) + ", " + std::to_string(step_s) + " s");
            const observed_run run = observe(with(w.settings, {{"ostrum_status_check_frequency", "0.05"}}),
                                             "clock_at " + std::to_string(half_past_twelve_s) +
                                                 "; init; op 1; clock_step " + std::to_string(step_s) +
                                                 "; op 2; variable flist_on 2; sleep 60; flist_op 3; exit 5");
            expect_unharmed(run, {.exit_status = 5});
            EXPECT_EQ(run.written, run.issued);
            const std::string before = "20260115_120000.20260115_130000";
            const std::string after =
                step_s > 0 ? "20260115_130000.20260115_140000" : "20260115_110000.20260115_120000";
            EXPECT_EQ(periods_with(run, 1), std::vector{before});
            EXPECT_EQ(periods_with(run, 2), std::vector{after});
            EXPECT_EQ(periods_with(run, 3), std::vector{after});
            EXPECT_EQ(run.host.files_ending(after + ".flog.txt").size(), 1U) << "the variable is not seen";
        }
    }
    std::cout << 2 * std::size(both_ways) << " runs\n";
}

// Two moments, at each of which an operation runs, and the periods that their files are named by.
struct two_moments {
    const char* zone;
    const char* period;
    long first_s;
    const char* first;
    long second_s;
    const char* second;
};

void expect_named(const two_moments& c)
{
    for (const writing& w : both_ways) {
        SCOPED_TRACE(std::string(w.name) + ", " + c.zone + ", " + c.period + ", " + c.first + ", " +
                     c.second);
        std::vector<host_setting> settings = with(w.settings, always_checking);
        settings.push_back({"ostrum_aggregation_period", c.period});
        const observed_run run =
            observe(settings, "zone " + std::string(c.zone) + "; clock_at " + std::to_string(c.first_s) +
                                  "; init; op 1; clock_at " + std::to_string(c.second_s) + "; op 2; exit 5");
        expect_unharmed(run, {.exit_status = 5});
        EXPECT_EQ(run.written, run.issued);
        EXPECT_EQ(periods_with(run, 1), std::vector<std::string>{c.first});
        EXPECT_EQ(periods_with(run, 2), std::vector<std::string>{c.second});
    }
}

// The start of a period is named as the clock on the wall would be set back to it, its end as the clock on
// the wall will show it.
TEST_F(ClockSteps, DaylightSaving)
{
    constexpr const char* berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
    constexpr const char* new_york = "EST5EDT,M3.2.0,M11.1.0";
    constexpr const char* lord_howe = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0"; // by half an hour
    const two_moments cases[] = {
        // 01:59:50, then 03:00:00
        {berlin, "1h", 1774745990, "20260329_010000.20260329_030000", 1774746000,
         "20260329_030000.20260329_040000"},
        {berlin, "30m", 1774745990, "20260329_013000.20260329_030000", 1774746000,
         "20260329_030000.20260329_033000"},
        {berlin, "4h", 1774745990, "20260329_000000.20260329_050000", 1774746000,
         "20260329_000000.20260329_040000"},
        // 02:59:50, then 02:00:00
        {berlin, "1h", 1792889990, "20261025_020000.20261025_020000", 1792890000,
         "20261025_020000.20261025_030000"},
        {berlin, "15m", 1792889990, "20261025_024500.20261025_020000", 1792890000,
         "20261025_020000.20261025_021500"},
        // ten years on: further than start-up has looked
        {berlin, "1h", 1768480200, "20260115_130000.20260115_140000", 2087953200,
         "20360301_040000.20360301_050000"},
        {new_york, "2h", 1772953190, "20260308_000000.20260308_030000", 1772953200,
         "20260308_020000.20260308_040000"},
        {new_york, "12h", 1793512790, "20261101_000000.20261101_110000", 1793512800,
         "20261101_000000.20261101_120000"},
        // 01:59:50, then 02:30:00
        {lord_howe, "1h", 1791041390, "20261004_010000.20261004_023000", 1791041400,
         "20261004_020000.20261004_030000"},
        // 01:59:50, then 01:30:00
        {lord_howe, "30m", 1775314790, "20260405_013000.20260405_013000", 1775314800,
         "20260405_013000.20260405_020000"},
    };
    for (const two_moments& c : cases) {
        expect_named(c);
    }
    std::cout << std::size(cases) * std::size(both_ways) << " runs\n";
}

TEST_F(ClockSteps, TheYearsGoOn)
{
    const two_moments cases[] = {
        {"UTC", "1m", 2147483640, "20380119_031400.20380119_031500", 2147483700,
         "20380119_031500.20380119_031600"},
        {"UTC", "1h", 4107542390, "21000228_230000.21000301_000000", 4107542400,
         "21000301_000000.21000301_010000"},
        {"UTC", "1m", 4294967290, "21060207_062800.21060207_062900", 4294967350,
         "21060207_062900.21060207_063000"},
    };
    for (const two_moments& c : cases) {
        expect_named(c);
    }
    std::cout << std::size(cases) * std::size(both_ways) << " runs\n";
}

// What 32 bits hold of a time: the period's own times in a trace file, and %t of the data file's name.
TEST_F(ClockSteps, TimesOf32BitsWrapIn2038)
{
    const observed_run run =
        observe({{"ostrum_data_file", "%T_%t.ostrum_data.dat"}}, "clock_at 2147483700; init; op 3; exit 5");
    expect_unharmed(run, {.exit_status = 5});
    EXPECT_EQ(run.host.files_ending("20380119031500_-2147483596.ostrum_data.dat").size(), 1U);
    const std::string text = run.host.text_of_files(".plog.txt");
    EXPECT_NE(text.find("VRT_OP_ELAPSED,-2147483596.000000000,"), std::string::npos) << text;
    EXPECT_NE(text.find("\nF,-2147483596.000000000,0,1,"), std::string::npos) << text;
}

// Without a look at the clock that was set back, the next flush would be as far away as that.
TEST_F(ClockSteps, ASetBackClockPutsNoFlushOff)
{
    for (const writing& w : both_ways) {
        SCOPED_TRACE(w.name);
        const observed_run run = observe(
            w.settings,
            "clock_at " + std::to_string(half_past_twelve_s) +
                "; init; op 1; clock_step -1200; op 2; sleep 100; shell cat *.plog.txt >seen; exit 5");
        expect_unharmed(run, {.exit_status = 5});
        EXPECT_EQ(run.written, run.issued);
        EXPECT_NE(temp_dir::read(run.host.directory->file("seen")).find("\nS,1,0,2,"), std::string::npos);
    }
    std::cout << std::size(both_ways) << " runs\n";
}
