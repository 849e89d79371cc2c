#include "robustness/host_oracle.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include <gtest/gtest.h>
#include <unistd.h>

#include "data_file/layout.h"
namespace {

// Each run makes and removes a data file of 5.8 MB: in memory where there is some.
void keep_files_in_memory()
{
    if (access("/dev/shm", W_OK) == 0) {
        setenv("TMPDIR", "/dev/shm", 0);
    }
}

// ---- Trace files ----

struct started {
    int level;
    int opcode;
    int bucket;
};

// The fields as docs/formats.md has them; the hosts' names hold no commas. `kinds` has a letter a field: n a
// number, the rest anything.
bool split(const std::string& line, const std::string& kinds, std::vector<std::string>& fields)
{
    fields.clear();
    std::istringstream rest(line + ",");
    for (std::string field; std::getline(rest, field, ',');) {
        const char kind = fields.size() < kinds.size() ? kinds[fields.size()] : 'n';
        if (kind == 'n' && (field.empty() || field.find_first_not_of("-.0123456789") != std::string::npos)) {
            return false;
        }
        fields.push_back(field);
    }
    return fields.size() == kinds.size();
}

bool parse_start(const std::string& line, started& s)
{
    std::vector<std::string> fields;
    if (line[0] != 'S' || !split(line, "Snnnntntnnntntn", fields)) {
        return false;
    }
    s = {std::stoi(fields[1]), std::stoi(fields[3]), std::stoi(fields[12])};
    return true;
}

struct figures {
    long calls;
    double longest_s;
    bool negative; // any of them
};

bool parse_figures(const std::string& line, figures& f)
{
    std::vector<std::string> fields;
    if (line[0] != 'F' || !split(line, "Fnnnnnnnnnnnn", fields)) {
        return false;
    }
    f = {std::stol(fields[3]), std::stod(fields[5]), line.find('-') != std::string::npos};
    return true;
}

class trace_checker {
public:
    explicit trace_checker(observed_run& run) : run_(run) {}

    void read(const std::string& text)
    {
        open_.clear();
        const bool whole = text.empty() || text.back() == '\n';
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            if (lines.eof() && !whole) {
                break; // the cut one
            }
            if (!line.empty() && !take(line)) {
                open_.clear();
                ++run_.broken_lines;
                run_.first_broken = run_.first_broken.empty() ? line : run_.first_broken;
            }
        }
        run_.cut_files += whole && open_.empty() ? 0 : 1;
    }

private:
    // False: no record, or one out of its place.
    bool take(const std::string& line)
    {
        started start{};
        if (parse_start(line, start)) {
            open_.push_back(start);
            return true;
        }
        figures f{};
        if (!parse_figures(line, f) || open_.empty()) {
            return false;
        }
        const started of = open_.back();
        open_.pop_back();
        if (of.level > 0 && of.bucket == 0) {
            run_.written += f.calls;
            run_.calls[of.opcode] += f.calls;
            run_.longest_s = std::max(run_.longest_s, f.longest_s);
        }
        return of.level == 0 || !f.negative; // the period's own times wrap in 2038
    }

    observed_run& run_;
    std::vector<started> open_;
};

// ---- The data file ----

// Where each stands in the file, and the most that it may be.
struct word {
    const char* name;
    size_t at;
    uint64_t most;
};

using ostrum::data_file_image;
constexpr size_t header_locks = 5;
constexpr word counts[] = {
    {"counters", offsetof(data_file_image, counter_count), ostrum::max_counters},
    {"variables", offsetof(data_file_image, variable_count), ostrum::max_variables},
    {"errors", offsetof(data_file_image, error_count), ostrum::max_errors},
    {"samples", offsetof(data_file_image, metrics), UINT64_MAX}, // its first word
};

template <typename Value>
Value value_at(std::ifstream& file, size_t at)
{
    Value value{};
    file.seekg(static_cast<std::streamoff>(at));
    file.read(reinterpret_cast<char*>(&value), sizeof(value));
    return value;
}

// What is wrong with it. A file of another size is none, as start-up has said.
std::string read_data_file(observed_run& run, const std::string& path)
{
    constexpr char signature[] = "ostrum-64bit\n";
    std::error_code ignored;
    if (std::filesystem::file_size(path, ignored) != sizeof(data_file_image)) {
        return "";
    }
    std::ifstream file(path, std::ios::binary);
    const auto found = value_at<std::array<char, sizeof(signature)>>(file, 0);
    if (found[0] != '\0' && memcmp(found.data(), signature, sizeof(signature)) != 0) {
        return "something has written over the signature";
    }
    for (size_t slot = 0; slot < header_locks; ++slot) {
        const size_t mutex_at = offsetof(data_file_image, locks) + slot * sizeof(ostrum::lock_slot) +
                                offsetof(ostrum::lock_slot, mutex);
        if (value_at<int>(file, mutex_at) != 0) { // the lock word: 0 is free
            return "header lock " + std::to_string(slot) + " is held";
        }
    }
    for (const word& count : counts) {
        run.counts[count.name] = value_at<uint64_t>(file, count.at);
        if (run.counts[count.name] > count.most) {
            return std::string(count.name) + " is beyond its table";
        }
    }
    return "";
}

void read_files(observed_run& run)
{
    trace_checker checker(run);
    std::error_code ignored;
    using std::filesystem::recursive_directory_iterator;
    for (const auto& entry : recursive_directory_iterator(run.host.directory->path(), ignored)) {
        const std::string path = entry.path().string();
        if (!std::filesystem::is_regular_file(entry.symlink_status(ignored))) {
            continue; // a FIFO would keep the test waiting
        }
        if (path.find(".plog.txt") != std::string::npos) {
            checker.read(temp_dir::read(path));
        } else if (path.find("ostrum_data.dat") != std::string::npos) {
            const std::string fault = read_data_file(run, path);
            run.misread = run.misread.empty() ? fault : run.misread;
        }
    }
}

} // namespace

const char* fault_shim_path()
{
    return OSTRUM_FAULT_SHIM;
}

long reported(const host_run& run, const std::string& name)
{
    long sum = 0;
    std::istringstream lines(run.output);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(name + "=", 0) == 0) {
            sum += std::stol(line.substr(name.size() + 1));
        }
    }
    return sum;
}

std::string observed_run::incidents() const
{
    static const char* const ordinary[] = {"******", "ZOR PERFORMANCE LIBRARY", "g_perf_common_init : ",
                                           "initialise_ostrum : ostrum initialisation OK"};
    std::string all;
    std::istringstream lines(host.errors);
    for (std::string line; std::getline(lines, line);) {
        bool told = true;
        for (const char* text : ordinary) {
            told = told && line.find(text) == std::string::npos;
        }
        all += told ? line + "\n" : "";
    }
    return all;
}

const std::vector<writing>& ways()
{
    static const std::vector<writing> all = [] {
        const std::vector<host_setting> busy{{"ostrum_max_log_size", "2"},
                                             {"ostrum_status_check_frequency", "0"}};
        std::vector<writing> made{
            {"own files", busy}, {"shared file", busy}, {"flusher", busy}, {"all on", busy}};
        for (size_t way = 1; way < made.size(); ++way) {
            if (way != 2) {
                made[way].settings.push_back({"ostrum_log_single_file", "all"});
                made[way].settings.push_back({"ostrum_log_max_single_file_size", "20000"});
            }
            if (way >= 2) {
                made[way].settings.push_back({"ostrum_async_flushing", "1"});
            }
        }
        made.back().settings.push_back({"ostrum_var_flist_on", "3"});
        return made;
    }();
    return all;
}

std::shared_ptr<temp_dir> new_directory()
{
    keep_files_in_memory();
    return std::make_shared<temp_dir>();
}

host_run run_watched(std::vector<host_setting> settings, const std::string& script,
                     const host_options& options)
{
    settings.push_back({"ld_preload", sanitized() ? nullptr : fault_shim_path()});
    settings.push_back({"ostrum_var_time", "3"}); // of two the first counts
    keep_files_in_memory();
    return run_host(settings, "oracle; " + script, options);
}

observed_run look_at(const std::vector<host_run>& hosts)
{
    observed_run run;
    run.host = hosts.at(0);
    for (size_t other = 1; other < hosts.size(); ++other) {
        run.host.output += hosts[other].output;
        run.host.errors += hosts[other].errors;
    }
    run.issued = reported(run.host, "issued");
    run.finished = reported(run.host, "finished");
    run.left_open = reported(run.host, "left_open");
    run.faults_hit = reported(run.host, "fault_hits");
    run.blocks = reported(run.host, "blocks");
    read_files(run);
    return run;
}

observed_run observe(const std::vector<host_setting>& settings, const std::string& script,
                     const host_options& options)
{
    return look_at({run_watched(settings, script, options)});
}

void expect_unharmed(const observed_run& run, const expectation& expected)
{
    const std::string incidents = run.incidents();
    EXPECT_EQ(run.host.exit_status, expected.exit_status) << incidents;
    EXPECT_EQ(run.host.output.find("BAD"), std::string::npos) << run.host.output << incidents;
    EXPECT_TRUE(expected.damaged_data_file || run.misread.empty()) << run.misread << "\n" << incidents;
    EXPECT_LE(run.broken_lines, expected.killed) << run.first_broken << "\n" << incidents;
    EXPECT_TRUE(expected.may_cut || expected.killed > 0 || run.cut_files == 0) << incidents;
    EXPECT_TRUE(run.written <= run.issued || expected.uncounted)
        << run.written - run.issued << " calls are written twice\n"
        << incidents;
    const long due = expected.at_work ? run.finished : run.issued;
    if (run.written < due && !expected.untold) {
        EXPECT_NE(incidents, "") << due - run.written << " calls are lost without a message";
    }
    if (expected.undisturbed != nullptr) {
        // The data file stays open.
        const bool opened = incidents.find("perf_log_init : failed opening data_file[") == std::string::npos;
        EXPECT_LE(run.left_open, expected.undisturbed->left_open - (opened ? 0 : 1)) << incidents;
        EXPECT_LE(run.blocks, expected.undisturbed->blocks) << incidents;
    }
}

bool long_form()
{
    return getenv("OSTRUM_STRESS") != nullptr;
}

unsigned seed()
{
    static const unsigned value = [] {
        const char* given = getenv("OSTRUM_SEED");
        const unsigned chosen = given != nullptr ? static_cast<unsigned>(strtoul(given, nullptr, 10)) : 1;
        std::cout << "seed " << chosen << " (OSTRUM_SEED)\n";
        return chosen;
    }();
    return value;
}

bool takes_part(unsigned case_number, unsigned one_of)
{
    return long_form() || (case_number + seed()) % one_of == 0;
}

bool sanitized()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return false;
#endif
}
