#include "measurements.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iomanip>

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

double percentile(std::vector<double>& values, double share)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const double rank = std::ceil(share * static_cast<double>(values.size()));
    return values[static_cast<size_t>(std::max(rank, 1.0)) - 1];
}

double median_value(const std::vector<sample>& values)
{
    std::vector<double> plain;
    std::transform(values.begin(), values.end(), std::back_inserter(plain),
                   [](const sample& each) { return each.value; });
    return median(plain);
}

double median_floors(const std::vector<sample>& values)
{
    std::vector<double> floors;
    std::transform(values.begin(), values.end(), std::back_inserter(floors),
                   [](const sample& each) { return each.floors; });
    return median(floors);
}

void pool(const samples& process, pooled_samples& into)
{
    const double floor_ns = median(process.at(floor_name));
    for (const auto& [name, repetitions] : process) {
        for (const double value : repetitions) {
            into[name].push_back({value, value / floor_ns});
        }
    }
}

void sample_collector::ReportRuns(const std::vector<Run>& runs)
{
    for (const Run& run : runs) {
        if (run.run_type != Run::RT_Iteration || run.error_occurred) {
            continue;
        }
        const bool cpu_time = run.run_name.time_type.empty();
        const double iteration_ns = cpu_time ? run.GetAdjustedCPUTime()
                                             : run.GetAdjustedRealTime() * static_cast<double>(run.threads);
        const auto units = run.counters.find(units_counter);
        const double count = units == run.counters.end() ? 1 : units->second.value;
        collected_[run.run_name.function_name].push_back(iteration_ns / count);
    }
}

void write_samples(const std::string& path, const samples& values)
{
    std::ofstream file(path);
    file << std::setprecision(12);
    for (const auto& [name, repetitions] : values) {
        for (const double value : repetitions) {
            file << value << " " << name << "\n";
        }
    }
}

void read_samples(const std::string& path, samples& values)
{
    std::ifstream file(path);
    double value = 0;
    std::string name;
    while (file >> value && std::getline(file >> std::ws, name)) {
        values[name].push_back(value);
    }
}

} // namespace ostrum_bench
