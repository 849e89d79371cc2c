#include "measurements.h"

#include <algorithm>
#include <fstream>

namespace ostrum_bench {

double median(std::vector<double> values)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

void sample_collector::ReportRuns(const std::vector<Run>& runs)
{
    for (const Run& run : runs) {
        if (run.run_type != Run::RT_Iteration || run.error_occurred) {
            continue;
        }
        const auto units = run.counters.find(units_counter);
        const double ns = units == run.counters.end() ? run.GetAdjustedCPUTime()
                                                      : run.GetAdjustedRealTime() / units->second.value;
        collected_[run.run_name.function_name].push_back(ns);
    }
}

void write_samples(const std::string& path, const samples& values)
{
    std::ofstream file(path);
    for (const auto& [row, repetitions] : values) {
        for (const double ns : repetitions) {
            file << ns << " " << row << "\n";
        }
    }
}

void read_samples(const std::string& path, samples& values)
{
    std::ifstream file(path);
    double ns = 0;
    std::string row;
    while (file >> ns && std::getline(file >> std::ws, row)) {
        values[row].push_back(ns);
    }
}

} // namespace ostrum_bench
