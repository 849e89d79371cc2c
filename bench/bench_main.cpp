// Runs every scenario in processes of its own and prints one table: medians, and their ratio to the
// clock floor measured in between in the same process.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include <stdlib.h>

#include "child_process.h"
#include "scenarios.h"

namespace ostrum_bench {
namespace {

constexpr const char* child_word = "--scenario";
constexpr const char* samples_file = "samples.txt";
constexpr const char* limited_row = "nested pair";
constexpr double limit_in_floors = 3.0;
constexpr run_length full_length{21, "0.05"};
constexpr run_length quick_length{3, "0.005"};

struct settings {
    bool quick = false;
    bool check = false;
    std::string only; // a scenario's name; empty = all
};

class scratch_directory {
public:
    scratch_directory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "ostrum_bench_XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot make a directory like " + pattern);
        }
        path_ = pattern;
    }
    ~scratch_directory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    scratch_directory(const scratch_directory&) = delete;
    scratch_directory& operator=(const scratch_directory&) = delete;
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;
};

const scenario& scenario_named(const std::string& name)
{
    const auto all = scenarios();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const scenario& each) { return name == each.name; });
    if (found == all.end()) {
        throw std::runtime_error("unknown scenario " + name);
    }
    return *found;
}

const run_length& length_of(const settings& given)
{
    return given.quick ? quick_length : full_length;
}

void run_process(const scenario& chosen, const settings& given, const std::string& directory, samples& into)
{
    std::vector<std::string> words{child_word, chosen.name};
    if (given.quick) {
        words.emplace_back("--quick");
    }
    const bool done = run_self(directory, words, chosen.environment);
    if (!done) {
        std::cerr << std::ifstream(directory + "/output.txt").rdbuf();
        throw std::runtime_error(std::string("scenario ") + chosen.name + " failed");
    }
    read_samples(directory + "/" + samples_file, into);
}

samples measure(const scenario& chosen, const settings& given)
{
    samples values;
    const scratch_directory shared;
    if (chosen.register_benchmarks != nullptr) {
        run_process(chosen, given, shared.path(), values);
        return values;
    }
    if (!chosen.new_directory) {
        samples discarded; // this first process makes the file that the others find
        run_process(chosen, given, shared.path(), discarded);
    }
    for (int process = 0; process < length_of(given).repetitions; ++process) {
        const scratch_directory own;
        run_process(chosen, given, chosen.new_directory ? own.path() : shared.path(), values);
    }
    return values;
}

// Prints the rows of one scenario; false when the limited row is above its limit.
bool print_rows(const samples& values)
{
    const double floor_ns = median(values.at(floor_row));
    bool within = true;
    for (const auto& [row, repetitions] : values) {
        if (row == floor_row) {
            continue;
        }
        const double ns = median(repetitions);
        const double ratio = ns / floor_ns;
        std::printf("%-52s %12.1f %10.2f %10.1f\n", row.c_str(), ns, ratio, floor_ns);
        within = within && (row != limited_row || ratio < limit_in_floors);
    }
    std::fflush(stdout);
    return within;
}

int run_all(const settings& given)
{
    std::printf("medians of %d repetitions; the floor is measured between them in the same process\n\n",
                length_of(given).repetitions);
    std::printf("%-52s %12s %10s %10s\n", "", "ns", "x floor", "floor ns");
    std::vector<double> floors;
    bool within = true;
    for (const scenario& each : scenarios()) {
        if (!given.only.empty() && given.only != each.name) {
            continue;
        }
        const samples values = measure(each, given);
        floors.push_back(median(values.at(floor_row)));
        within = print_rows(values) && within;
    }
    const double floor_ns = median(floors);
    std::printf("%-52s %12.1f %10.2f %10.1f\n", floor_row, floor_ns, 1.0, floor_ns);
    if (!within) {
        std::printf("\n\"%s\" costs %.0f times the floor or more\n", limited_row, limit_in_floors);
    }
    return given.check && !within ? 1 : 0;
}

void run_child(const std::string& name, const settings& given)
{
    write_samples(samples_file, run_scenario(scenario_named(name), length_of(given)));
}

constexpr const char* help_text =
    "usage: ostrum_bench [--quick] [--check] [--only SCENARIO]\n"
    "Measures the library's hooks, flushes and start-up.\n"
    "  --quick  few, short repetitions: shows that everything runs, not what it costs\n"
    "  --check  exit status 1 when a nested pair costs 3 times the clock floor or more\n"
    "  --only   one scenario: ";

void print_help()
{
    std::cout << help_text;
    for (const scenario& each : scenarios()) {
        std::cout << each.name << " ";
    }
    std::cout << "\n";
}

int run(const std::vector<std::string>& words)
{
    settings given;
    std::string child;
    for (size_t at = 0; at < words.size(); ++at) {
        const bool has_next = at + 1 < words.size();
        if (words[at] == "--quick") {
            given.quick = true;
        } else if (words[at] == "--check") {
            given.check = true;
        } else if (words[at] == "--only" && has_next) {
            given.only = scenario_named(words[++at]).name;
        } else if (words[at] == child_word && has_next) {
            child = words[++at];
        } else {
            print_help();
            return words[at] == "--help" ? 0 : 2;
        }
    }
    if (!child.empty()) {
        run_child(child, given);
        return 0;
    }
    return run_all(given);
}

} // namespace
} // namespace ostrum_bench

int main(int argc, char** argv)
{
    try {
        return ostrum_bench::run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ostrum_bench: %s\n", error.what());
        return 1;
    }
}
