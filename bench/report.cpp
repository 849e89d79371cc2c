#include "report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <unistd.h>

namespace ostrum_bench {
namespace {

constexpr size_t cell_bytes = 24;

struct cell {
    char text[cell_bytes];
};

cell limit_cell(const std::optional<double>& limit, const char* unit)
{
    cell result{"-"};
    if (limit) {
        std::snprintf(result.text, sizeof(result.text), "%g %s", *limit, unit);
    }
    return result;
}

// As many decimals as say something.
cell figure_cell(const std::optional<double>& value, const char* unit)
{
    cell result{"-"};
    if (value) {
        const double size = std::fabs(*value);
        const int decimals = size >= 1'000 || size == 0 ? 0 : size >= 100 ? 1 : size >= 0.1 ? 2 : 4;
        std::snprintf(result.text, sizeof(result.text), "%.*f %s", decimals, *value, unit);
    }
    return result;
}

const char* verdict(const row& line, double value)
{
    if (!line.reach && !line.aim) {
        return "";
    }
    return reaches(line, value) ? "ok" : "short";
}

// Of all processes, whichever scenario they ran.
double floor_ns(const scenario_samples& values)
{
    std::vector<sample> all;
    for (const auto& [scenario, by_name] : values) {
        const std::vector<sample>& floors = by_name.at(floor_name);
        all.insert(all.end(), floors.begin(), floors.end());
    }
    return median_value(all);
}

// Where too few repetitions are left, others had to do.
void print_doubt(const repetition_counts& repetitions)
{
    constexpr int enough = 15;
    if (repetitions.undisturbed < std::min(enough, repetitions.all)) {
        std::printf("  (%d of %d repetitions undisturbed)", repetitions.undisturbed, repetitions.all);
    }
}

} // namespace

void progress(const char* scenario, int process, int processes)
{
    if (isatty(STDERR_FILENO) != 0) {
        std::fprintf(stderr, "\r\033[K%s, process %d of %d", scenario, process, processes);
    }
}

void progress_done()
{
    if (isatty(STDERR_FILENO) != 0) {
        std::fprintf(stderr, "\r\033[K");
    }
}

void print_heading(const scenario_samples& values)
{
    std::printf("F, the floor, is two reads of CLOCK_REALTIME: %.1f ns here (median of all processes)\n\n",
                floor_ns(values));
    std::printf("%3s  %-50s %11s %11s %11s\n", "row", "what", "reach", "aim", "measured");
}

void print_row(const row& line, const scenario_samples& values)
{
    const std::optional<double> value = figure_of(line, values);
    char number[cell_bytes] = "";
    if (line.number > 0) {
        std::snprintf(number, sizeof(number), "%d", line.number);
    }
    std::printf("%3s  %-50s %11s %11s %11s  %s", number, line.what, limit_cell(line.reach, line.unit).text,
                limit_cell(line.aim, line.unit).text, figure_cell(value, line.unit).text,
                value ? verdict(line, *value) : "not measured");
    if (value && line.kind != figure::plain) {
        print_doubt(repetitions_of(line, values));
    }
    std::printf("\n");
}

} // namespace ostrum_bench
