#include "measurements.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <iomanip>
#include <limits>

namespace ostrum_bench {
namespace {

constexpr int few_undisturbed = 5;
constexpr double tolerated_slowness = 1.1;

double median_of(const std::vector<sample>& values, double sample::*member)
{
    const bool keep_all = undisturbed_count(values) < few_undisturbed;
    std::vector<double> kept;
    for (const sample& each : values) {
        if (keep_all || !each.disturbed) {
            kept.push_back(each.*member);
        }
    }
    return median(kept);
}

double fastest_processor_ns(const std::map<std::string, std::vector<samples>>& processes)
{
    double fastest_ns = std::numeric_limits<double>::max();
    for (const auto& [scenario, of_scenario] : processes) {
        for (const samples& process : of_scenario) {
            for (const auto& [name, readings] : process) {
                for (const reading& each : readings) {
                    fastest_ns = std::min(fastest_ns, each.processor_ns);
                }
            }
        }
    }
    return fastest_ns;
}

void pool_process(const samples& process, double slowest_ns, pooled_samples& into)
{
    std::vector<sample> floors;
    for (const reading& each : process.at(floor_name)) {
        floors.push_back({each.value, 1, each.processor_ns > slowest_ns});
    }
    const double floor_ns = median_of(floors, &sample::value);
    for (const auto& [name, readings] : process) {
        for (const reading& each : readings) {
            into[name].push_back({each.value, each.value / floor_ns, each.processor_ns > slowest_ns});
        }
    }
}

} // namespace

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

double probe_processor()
{
    constexpr int rounds = 150'000; // 0.1 ms: as good as at the same time in several threads
    uint64_t sums[5] = {};
    const auto start = std::chrono::steady_clock::now();
    for (int round = 0; round < rounds; ++round) {
        asm volatile("add $1, %0; add $1, %1; add $1, %2; add $1, %3; add $1, %4;"
                     "add $1, %0; add $1, %1; add $1, %2; add $1, %3; add $1, %4"
                     : "+r"(sums[0]), "+r"(sums[1]), "+r"(sums[2]), "+r"(sums[3]), "+r"(sums[4]));
    }
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
}

int undisturbed_count(const std::vector<sample>& values)
{
    return static_cast<int>(
        std::count_if(values.begin(), values.end(), [](const sample& each) { return !each.disturbed; }));
}

double median_value(const std::vector<sample>& values)
{
    return median_of(values, &sample::value);
}

double median_floors(const std::vector<sample>& values)
{
    return median_of(values, &sample::floors);
}

scenario_samples pool(const std::map<std::string, std::vector<samples>>& processes)
{
    const double slowest_ns = fastest_processor_ns(processes) * tolerated_slowness;
    scenario_samples pooled;
    for (const auto& [scenario, of_scenario] : processes) {
        for (const samples& process : of_scenario) {
            pool_process(process, slowest_ns, pooled[scenario]);
        }
    }
    return pooled;
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
        collected_[run.run_name.function_name].emplace_back(iteration_ns / count,
                                                            run.counters.at(processor_counter).value);
    }
}

void write_samples(const std::string& path, const samples& values)
{
    std::ofstream file(path);
    file << std::setprecision(12);
    for (const auto& [name, repetitions] : values) {
        for (const reading& each : repetitions) {
            file << each.value << " " << each.processor_ns << " " << name << "\n";
        }
    }
}

void read_samples(const std::string& path, samples& values)
{
    std::ifstream file(path);
    double value = 0;
    double processor_ns = 0;
    std::string name;
    while (file >> value >> processor_ns && std::getline(file >> std::ws, name)) {
        values[name].emplace_back(value, processor_ns);
    }
}

} // namespace ostrum_bench
