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
inline constexpr const char* processor_counter = "processor";

// Nanoseconds of a loop of additions, which show how fast the processor is at this moment. A virtual
// one shares its core with neighbours that nobody sees, and then takes half as long again for dense code,
// but hardly longer for reading the clock.
double probe_processor();

// A repetition's result, in nanoseconds or another unit, and how fast the processor was.
struct reading {
    reading(double measured) : value(measured), processor_ns(probe_processor()) {}
    reading(double measured, double probed) : value(measured), processor_ns(probed) {}
    double value;
    double processor_ns;
};

using samples = std::map<std::string, std::vector<reading>>; // of one process, by name

// Of all processes: each value beside the same in floors of the process that it comes from.
struct sample {
    double value;
    double floors;
    bool disturbed; // the processor was slower than it can be
};
using pooled_samples = std::map<std::string, std::vector<sample>>;
using scenario_samples = std::map<std::string, pooled_samples>; // by scenario

// What the processes of each scenario measured, put together.
scenario_samples pool(const std::map<std::string, std::vector<samples>>& processes);

double median(std::vector<double> values);
double percentile(std::vector<double>& values, double share); // sorts them; share 0.99 = the 99th

// Of the undisturbed ones, unless there are too few of them.
double median_value(const std::vector<sample>& values);
double median_floors(const std::vector<sample>& values);
int undisturbed_count(const std::vector<sample>& values);

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
