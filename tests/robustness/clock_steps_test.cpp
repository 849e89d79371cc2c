// The wall clock is set while hosts run, local time jumps with daylight saving, and the years go on.
#include <functional>

#include "robustness/host_oracle.h"

namespace {

constexpr int hour_s = 3600;
const std::string half_past_twelve = "clock_at 1768480200; "; // 2026-01-15 12:30:00 UTC

const writing both_ways[] = {{"own files", {}},
                             {"shared file, flusher",
                              {{"ostrum_log_single_file", "all"},
                               {"ostrum_log_max_single_file_size", "100000"},
                               {"ostrum_async_flushing", "1"}}}};

const host_settings always_checking{{"ostrum_status_check_frequency", "0"}};

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
    const auto image = map_data_file(run.host.directory->file("ostrum_data.dat"));
    uint64_t longest_tv = 0;
    for (size_t i = 0; i < image->counter_count; ++i) {
        longest_tv = std::max(longest_tv, image->counters[i].total_t);
    }
    return static_cast<double>(longest_tv) / 1e9;
}

// A sanitizer reads the clock itself.
using ClockSteps = unsanitized_test;

// Runs the body for both ways of writing and an hour either way.
void for_each_step(const std::function<void(const writing& way, int step_s)>& body)
{
    for (const writing& way : both_ways) {
        for (const int step_s : {hour_s, -hour_s}) {
            SCOPED_TRACE(std::string(way.name) + ", " + std::to_string(step_s) + " s");
            body(way, step_s);
        }
    }
}

} // namespace

// Whenever the clock is set, nothing is lost or waited for, and what seems to take less than no time takes
// none.
TEST_F(ClockSteps, AnHourEitherWayAtEachReadingOfTheClock)
{
    const std::string life =
        "init; op 1 7; start 1; start 2; end; end; op_key 7 1; variable flist_on 2; flist_op 1;"
        "thread {op 1}; select 1; query; repeat 3 {op 9}; exit 5";
    case_count runs;
    for_each_step([&](const writing& way, int step_s) {
        bool read = true;
        for (int nth = 1; read; ++nth) {
            if (!runs.next(8)) {
                continue;
            }
            const std::string step =
                "clock_step " + std::to_string(step_s) + " " + std::to_string(nth) + "; ";
            SCOPED_TRACE(step);
            const std::string script = half_past_twelve + step;
            const observed_run run = observe(with(way.settings, always_checking), script + life);
            expect_unharmed(run, {.exit_status = 5, .complete = true});
            const double most_s = step_s > 0 ? hour_s + 60 : 60;
            EXPECT_LT(run.longest_s, most_s);
            EXPECT_LT(counted_s(run), most_s);
            EXPECT_LT(run.host.took_s, 30);
            read = reported(run.host, "clock_steps") > 0;
        }
    });
}

// By the default look at the clock, once in half a second of it, an hour back would be an hour without a
// look.
TEST_F(ClockSteps, AreNoticedAtTheNextLook)
{
    case_count runs;
    for_each_step([&](const writing& way, int step_s) {
        const observed_run run =
            observe(with(way.settings, {{"ostrum_status_check_frequency", "0.05"}}),
                    half_past_twelve + "init; op 1; clock_step " + std::to_string(step_s) +
                        "; op 2; variable flist_on 2; sleep 60; flist_op 3; exit 5");
        expect_unharmed(run, {.exit_status = 5, .complete = true});
        const std::string after =
            step_s > 0 ? "20260115_130000.20260115_140000" : "20260115_110000.20260115_120000";
        EXPECT_EQ(periods_with(run, 1), std::vector<std::string>{"20260115_120000.20260115_130000"});
        EXPECT_EQ(periods_with(run, 2), std::vector{after});
        EXPECT_EQ(periods_with(run, 3), std::vector{after});
        EXPECT_EQ(run.host.files_ending(after + ".flog.txt").size(), 1U) << "the variable is not seen";
        runs.next();
    });
}

namespace {

// Two moments, at each of which an operation runs, and the periods that their files are named by.
struct two_moments {
    const char* zone;
    const char* period;
    long first_s;
    long behind_s; // the second
    const char* first;
    const char* second;
};

constexpr const char* berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* new_york = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char* lord_howe = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0"; // by half an hour
constexpr two_moments moments[] = {
    // The start of a period is named as the clock on the wall would be set back to it, its end as the clock
    // on the wall will show it. 01:59:50, then 03:00:00:
    {berlin, "1h", 1774745990, 10, "20260329_010000.20260329_030000", "20260329_030000.20260329_040000"},
    {berlin, "30m", 1774745990, 10, "20260329_013000.20260329_030000", "20260329_030000.20260329_033000"},
    {berlin, "4h", 1774745990, 10, "20260329_000000.20260329_050000", "20260329_000000.20260329_040000"},
    // 02:59:50, then 02:00:00
    {berlin, "1h", 1792889990, 10, "20261025_020000.20261025_020000", "20261025_020000.20261025_030000"},
    {berlin, "15m", 1792889990, 10, "20261025_024500.20261025_020000", "20261025_020000.20261025_021500"},
    // ten years on: further than start-up has looked
    {berlin, "1h", 1768480200, 319473000, "20260115_130000.20260115_140000",
     "20360301_040000.20360301_050000"},
    {new_york, "2h", 1772953190, 10, "20260308_000000.20260308_030000", "20260308_020000.20260308_040000"},
    {new_york, "12h", 1793512790, 10, "20261101_000000.20261101_110000", "20261101_000000.20261101_120000"},
    // 01:59:50, then 02:30:00
    {lord_howe, "1h", 1791041390, 10, "20261004_010000.20261004_023000", "20261004_020000.20261004_030000"},
    // 01:59:50, then 01:30:00
    {lord_howe, "30m", 1775314790, 10, "20260405_013000.20260405_013000", "20260405_013000.20260405_020000"},
    // the years go on
    {"UTC", "1m", 2147483640, 60, "20380119_031400.20380119_031500", "20380119_031500.20380119_031600"},
    {"UTC", "1h", 4107542390, 10, "21000228_230000.21000301_000000", "21000301_000000.21000301_010000"},
    {"UTC", "1m", 4294967290, 60, "21060207_062800.21060207_062900", "21060207_062900.21060207_063000"},
};

} // namespace

TEST_F(ClockSteps, PeriodsAreNamedByTheClockOnTheWall)
{
    case_count runs;
    for (const two_moments& c : moments) {
        for (const writing& way : both_ways) {
            SCOPED_TRACE(testing::Message() << way.name << ", " << c.zone << ", " << c.period << ", "
                                            << c.first << ", " << c.second);
            const observed_run run =
                observe(with(with(way.settings, always_checking),
                             {{"tz", c.zone}, {"ostrum_aggregation_period", c.period}}),
                        "clock_at " + std::to_string(c.first_s) + "; init; op 1; clock_at " +
                            std::to_string(c.first_s + c.behind_s) + "; op 2; exit 5");
            expect_unharmed(run, {.exit_status = 5});
            EXPECT_EQ(run.written, run.issued);
            EXPECT_EQ(periods_with(run, 1), std::vector<std::string>{c.first});
            EXPECT_EQ(periods_with(run, 2), std::vector<std::string>{c.second});
            runs.next();
        }
    }
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
    const std::string look = // for ten seconds: the flusher has its own time
        "shell seq 100 | xargs -n 1 sh -c 'grep -h ^S,1,0,2, *.plog.txt && exit 255 || sleep .1' "
        "2>/dev/null; ";
    const std::string script = half_past_twelve + "init; op 1; clock_step -1200; op 2; " + look + "exit 5";
    case_count runs;
    for (const writing& way : both_ways) {
        SCOPED_TRACE(way.name);
        const observed_run run = observe(way.settings, script);
        expect_unharmed(run, {.exit_status = 5});
        EXPECT_EQ(run.written, run.issued);
        EXPECT_NE(run.host.output.find("S,1,0,2,"), std::string::npos);
        runs.next();
    }
}
