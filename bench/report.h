#ifndef OSTRUM_BENCH_REPORT_H
#define OSTRUM_BENCH_REPORT_H
#include "rows.h"

namespace ostrum_bench {

// What is being measured, on the terminal only: one line that is written over.
void progress(const char* scenario, int process, int processes);
void progress_done();

void print_heading(const scenario_samples& values);
void print_row(const row& line, const scenario_samples& values);

} // namespace ostrum_bench
#endif
