#ifndef OSTRUM_BENCH_ROWS_H
#define OSTRUM_BENCH_ROWS_H
// The table of results: each row's figure, from which samples it comes, and the limits it is held to.
#include <optional>
#include <span>

#include "measurements.h"

namespace ostrum_bench {

// The samples of one name in one scenario.
struct sample_name {
    const char* scenario;
    const char* name;
};

enum class figure {
    floors,       // medians in floors
    added_floors, // the same, less those of the base
    times,        // how many times those of the base
    times_faster, // how many times those of the base go into it; the only one where more is better
    plain         // as measured, in the row's unit
};

struct row {
    int number; // 0 = beside the numbered ones, for comparison
    figure kind;
    const char* what;
    const char* unit;            // printed behind the figure
    std::optional<double> reach; // none = no limit
    std::optional<double> aim;
    sample_name measured;
    sample_name base{nullptr, nullptr}; // of the kinds that compare
};

std::span<const row> rows();

// Null where samples are missing: a benchmark that was not built or not run.
std::optional<double> figure_of(const row& line, const scenario_samples& values);

// Repetitions whose processor was at its full speed, and all: the fewer ones where two are compared.
struct repetition_counts {
    int undisturbed;
    int all;
};
repetition_counts repetitions_of(const row& line, const scenario_samples& values);

bool reaches(const row& line, double value);

} // namespace ostrum_bench
#endif
