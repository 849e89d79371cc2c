// Runs the scenarios in processes of their own and prints one table: figures beside what they are held to.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <stdexcept>

#include <stdlib.h>

#include "child_process.h"
#include "report.h"
#include "rows.h"
#include "scenarios.h"

namespace ostrum_bench {
namespace {

constexpr const char* child_word = "--scenario";
constexpr const char* samples_file = "samples.txt";
constexpr const char* skipped_file = "skipped.txt"; // why there are no samples
constexpr run_plan quick_plan{1, 3};

struct settings {
    bool quick = false;
    std::set<int> rows; // empty = all
    std::string only;   // a scenario's name; empty = those of the rows
    std::string child;  // a scenario's name: this is its process
    int repetitions = 0;
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

run_plan plan_of(const scenario& chosen, const settings& given)
{
    return given.quick ? run_plan{std::min(chosen.plan.processes, quick_plan.processes),
                                  std::min(chosen.plan.repetitions, quick_plan.repetitions)}
                       : chosen.plan;
}

struct results {
    std::map<std::string, std::vector<samples>> processes; // by scenario
    std::map<std::string, std::string> skipped;            // reasons by scenario
};

void run_process(const scenario& chosen, const settings& given, const std::string& directory, results& into)
{
    std::vector<std::string> words{child_word, chosen.name, "--repetitions",
                                   std::to_string(plan_of(chosen, given).repetitions)};
    if (given.quick) {
        words.emplace_back("--quick");
    }
    if (!run_self(directory, words, chosen.environment)) {
        std::cerr << std::ifstream(directory + "/output.txt").rdbuf();
        throw std::runtime_error(std::string("scenario ") + chosen.name + " failed");
    }
    std::ifstream reason(directory + "/" + skipped_file);
    if (reason) {
        std::getline(reason, into.skipped[chosen.name]);
        return;
    }
    read_samples(directory + "/" + samples_file, into.processes[chosen.name].emplace_back());
}

bool is_wanted(const row& line, const settings& given)
{
    return given.only.empty() ? given.rows.empty() || given.rows.contains(line.number)
                              : given.only == line.measured.scenario ||
                                    (line.base.scenario != nullptr && given.only == line.base.scenario);
}

bool is_wanted(const scenario& each, const settings& given)
{
    if (!given.only.empty()) {
        return given.only == each.name;
    }
    const auto needs = [&each](const sample_name& source) {
        return source.scenario != nullptr && source.scenario == std::string(each.name);
    };
    const auto all = rows();
    return std::any_of(all.begin(), all.end(), [&](const row& line) {
        return is_wanted(line, given) && (needs(line.measured) || needs(line.base));
    });
}

// One process of each scenario after the other, then the next round: what a row compares is measured
// in turn.
results measure_all(const settings& given)
{
    results found;
    const scratch_directory shared;
    bool more = true;
    for (int round = 0; more; ++round) {
        more = false;
        for (const scenario& each : scenarios()) {
            if (!is_wanted(each, given) || round >= plan_of(each, given).processes) {
                continue;
            }
            more = true;
            progress(each.name, round + 1, plan_of(each, given).processes);
            const scratch_directory own;
            const bool is_shared = each.directory == directory_use::shared;
            if (is_shared && round == 0) {
                results discarded; // the first process makes the file that the others find
                run_process(each, given, shared.path(), discarded);
            }
            run_process(each, given, is_shared ? shared.path() : own.path(), found);
        }
    }
    progress_done();
    return found;
}

void run_parent(const settings& given)
{
    const results found = measure_all(given);
    const scenario_samples values = pool(found.processes);
    print_heading(values);
    for (const row& line : rows()) {
        if (is_wanted(line, given)) {
            print_row(line, values);
        }
    }
    for (const auto& [scenario, reason] : found.skipped) {
        std::printf("\nskipped %s: %s\n", scenario.c_str(), reason.c_str());
    }
}

void run_child(const settings& given)
{
    try {
        write_samples(samples_file,
                      run_scenario(scenario_named(given.child), given.repetitions, given.quick));
    } catch (const skipped& reason) {
        std::ofstream(skipped_file) << reason.what() << "\n";
    }
}

constexpr const char* help_text =
    "usage: ostrum_bench [--quick] [--rows N,M...] [--only SCENARIO]\n"
    "Measures what the library costs and prints the table of results.\n"
    "  --quick  few, short repetitions: shows that everything runs, not what it costs\n"
    "  --rows   only these rows; 0 stands for those without a number\n"
    "  --only   only the rows of one scenario: ";

void print_help()
{
    std::cout << help_text;
    for (const scenario& each : scenarios()) {
        std::cout << each.name << " ";
    }
    std::cout << "\n";
}

std::set<int> parse_rows(const std::string& text)
{
    std::set<int> numbers;
    std::istringstream list(text);
    for (std::string number; std::getline(list, number, ',');) {
        numbers.insert(std::stoi(number));
    }
    return numbers;
}

// False when the words are none that are known.
bool parse(const std::vector<std::string>& words, settings& given)
{
    for (size_t at = 0; at < words.size(); ++at) {
        const std::string& word = words[at];
        const bool has_next = at + 1 < words.size();
        if (word == "--quick") {
            given.quick = true;
        } else if (word == "--rows" && has_next) {
            given.rows = parse_rows(words[++at]);
        } else if (word == "--only" && has_next) {
            given.only = scenario_named(words[++at]).name;
        } else if (word == child_word && has_next) {
            given.child = words[++at];
        } else if (word == "--repetitions" && has_next) {
            given.repetitions = std::stoi(words[++at]);
        } else {
            return false;
        }
    }
    return true;
}

int run(const std::vector<std::string>& words)
{
    settings given;
    if (!parse(words, given)) {
        print_help();
        return words.front() == "--help" ? 0 : 2;
    }
    if (given.child.empty()) {
        run_parent(given);
    } else {
        run_child(given);
    }
    return 0;
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
