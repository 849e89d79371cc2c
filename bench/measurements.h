#ifndef OSTRUM_BENCH_MEASUREMENTS_H
#define OSTRUM_BENCH_MEASUREMENTS_H
// What one child process measured, by row name, and the file in which it hands that to its parent.
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace ostrum_bench {

inline constexpr const char* floor_row = "clock floor: two reads of CLOCK_REALTIME";
// Counter of a benchmark whose iteration time, set by hand, covers that many units of work.
inline constexpr const char* units_counter = "units";

using samples = std::map<std::string, std::vector<double>>; // ns, one for each repetition

double median(std::vector<double> values);

// Keeps every repetition. Times are CPU time of the measuring threads, which a busy machine disturbs
// least, unless the benchmark sets its time by hand.
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
