#ifndef OSTRUM_BENCH_MEASUREMENTS_H
#define OSTRUM_BENCH_MEASUREMENTS_H
// What one child process measured, by name, the file in which it hands that to its parent, and what the
// parent makes of several processes.
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace ostrum_bench {

inline constexpr const char* floor_name = "clock floor: two reads of CLOCK_REALTIME";
// Counter of a benchmark whose iteration is that many units of work, and whose samples are of one unit.
inline constexpr const char* units_counter = "units";

// One process: nanoseconds or another unit, one for each repetition.
using samples = std::map<std::string, std::vector<double>>;

// Of all processes: each value beside the same in floors of the process that it comes from, so that a
// change of the processor's speed between two processes does not show.
struct sample {
    double value;
    double floors;
};
using pooled_samples = std::map<std::string, std::vector<sample>>;

double median(std::vector<double> values);
double percentile(std::vector<double>& values, double share); // sorts them; share 0.99 = the 99th
double median_value(const std::vector<sample>& values);
double median_floors(const std::vector<sample>& values);
void pool(const samples& process, pooled_samples& into);

// Keeps every repetition. Times are CPU time of the measuring threads, which a busy machine disturbs
// least, unless the benchmark asks for the time on the wall, because waiting is what it measures, or sets
// it by hand. Always per thread.
class sample_collector : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override;
    [[nodiscard]] const samples& collected() const { return collected_; }

private:
    samples collected_;
};

void write_samples(const std::string& path, const samples& values);
void read_samples(const std::string& path, samples& values);

} // namespace ostrum_bench
#endif
