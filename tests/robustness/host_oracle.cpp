#include "robustness/host_oracle.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <numeric>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// ---- Trace files ----

// The fields as docs/formats.md has them; the hosts' names hold no commas. `kinds` begins with the record's
// letter, then has a letter a field: n a number, t anything. None when the line is no such record.
std::vector<std::string> fields_of(const std::string& line, const std::string& kinds)
{
    std::vector<std::string> fields;
    std::istringstream rest(line[0] == kinds[0] ? line + "," : "");
    for (std::string field; std::getline(rest, field, ',');) {
        const bool any = fields.empty() || (fields.size() < kinds.size() && kinds[fields.size()] == 't');
        if (!any && (field.empty() || field.find_first_not_of("-.0123456789") != std::string::npos)) {
            return {};
        }
        fields.push_back(field);
    }
    return fields.size() == kinds.size() && fields[0].size() == 1 ? fields : std::vector<std::string>();
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
    struct started {
        int level;
        int opcode;
        int bucket;
    };

    // False: no record, or one out of its place.
    bool take(const std::string& line)
    {
        if (const auto start = fields_of(line, "Snnnntntnnntntn"); !start.empty()) {
            open_.push_back({std::stoi(start[1]), std::stoi(start[3]), std::stoi(start[12])});
            return true;
        }
        const auto end = fields_of(line, "Fnnnnnnnnnnnn");
        if (end.empty() || open_.empty()) {
            return false;
        }
        const started of = open_.back();
        open_.pop_back();
        if (of.level > 0 && of.bucket == 0) {
            const long calls = std::stol(end[3]);
            run_.written += calls;
            run_.calls[of.opcode] += calls;
            run_.longest_s = std::max(run_.longest_s, std::stod(end[5]));
        }
        // The period's own times wrap in 2038.
        return of.level == 0 || line.find('-') == std::string::npos;
    }

    observed_run& run_;
    std::vector<started> open_;
};

// ---- The data file ----

// What is wrong with it. A file of another size is none, as start-up has said.
std::string read_data_file(observed_run& run, const std::string& path)
{
    constexpr char signature[] = "ostrum-64bit\n";
    const auto image = map_data_file(path);
    if (image == nullptr) {
        return "";
    }
    if (image->signature[0] != '\0' && memcmp(image->signature, signature, sizeof(signature)) != 0) {
        return "something has written over the signature";
    }
    for (const ostrum::lock_slot& slot : image->locks) {
        if (slot.mutex.__data.__lock != 0) {
            return "header lock " + std::to_string(&slot - image->locks) + " is held";
        }
    }
    run.counts = {{"counters", image->counter_count},
                  {"variables", image->variable_count},
                  {"errors", image->error_count},
                  {"samples", image->metrics.words[0]}};
    const bool in_tables = image->counter_count <= ostrum::max_counters &&
                           image->variable_count <= ostrum::max_variables &&
                           image->error_count <= ostrum::max_errors;
    return in_tables ? "" : "a count is beyond its table";
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

std::vector<long> figures(const host_run& run, const std::string& name)
{
    std::vector<long> found;
    std::istringstream lines(run.output);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(name + "=", 0) == 0) {
            found.push_back(std::stol(line.substr(name.size() + 1)));
        }
    }
    return found;
}

long reported(const host_run& run, const std::string& name)
{
    const std::vector<long> found = figures(run, name);
    return std::accumulate(found.begin(), found.end(), 0L);
}

std::shared_ptr<const ostrum::data_file_image> map_data_file(const std::string& path)
{
    constexpr size_t bytes = sizeof(ostrum::data_file_image);
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    const bool whole = fd >= 0 && fstat(fd, &status) == 0 && status.st_size == off_t{bytes};
    void* const image = whole ? mmap(nullptr, bytes, PROT_READ, MAP_SHARED, fd, 0) : MAP_FAILED;
    close(fd);
    if (image == MAP_FAILED) {
        return nullptr;
    }
    return {static_cast<const ostrum::data_file_image*>(image),
            [image](const void*) { munmap(image, bytes); }};
}

std::string observed_run::incidents() const
{
    static const char* const ordinary[] = {"******", "ZOR PERFORMANCE LIBRARY", "g_perf_common_init : ",
                                           "initialise_ostrum : ostrum initialisation OK"};
    std::string all;
    std::istringstream lines(host.errors);
    for (std::string line; std::getline(lines, line);) {
        const bool told = std::none_of(std::begin(ordinary), std::end(ordinary), [&line](const char* text) {
            return line.find(text) != std::string::npos;
        });
        all += told ? line + "\n" : "";
    }
    return all;
}

host_settings with(host_settings settings, const host_settings& more)
{
    settings.insert(settings.end(), more.begin(), more.end());
    return settings;
}

const std::vector<writing>& ways()
{
    static const host_settings busy{{"ostrum_max_log_size", "2"}, {"ostrum_status_check_frequency", "0"}};
    static const host_settings shared{{"ostrum_log_single_file", "all"},
                                      {"ostrum_log_max_single_file_size", "20000"}};
    static const host_settings flusher{{"ostrum_async_flushing", "1"}};
    static const std::vector<writing> all{
        {"own files", busy},
        {"shared file", with(busy, shared)},
        {"flusher", with(busy, flusher)},
        {"all on", with(with(with(busy, shared), flusher), {{"ostrum_var_flist_on", "3"}})}};
    return all;
}

// Each run makes and removes a data file of 5.8 MB: in memory where there is some.
std::shared_ptr<temp_dir> new_directory()
{
    if (access("/dev/shm", W_OK) == 0) {
        setenv("TMPDIR", "/dev/shm", 0);
    }
    return std::make_shared<temp_dir>();
}

host_run run_watched(const host_settings& settings, const std::string& script, const host_options& options)
{
    const host_settings own{{"ld_preload", sanitized() ? nullptr : OSTRUM_FAULT_SHIM},
                            {"ostrum_var_time", "3"}}; // of two the first counts
    host_options here = options;
    here.directory = options.directory != nullptr ? options.directory : new_directory();
    return run_host(with(settings, own), "oracle; " + script, here);
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

observed_run observe(const host_settings& settings, const std::string& script, const host_options& options)
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
    if (expected.complete) {
        EXPECT_EQ(incidents, "");
        EXPECT_EQ(run.written, run.issued);
    }
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

case_count::~case_count()
{
    std::cout << runs_ << " runs\n";
}

bool case_count::next(unsigned one_of, bool always)
{
    const bool takes_part = (number_++ + seed()) % one_of == 0 || always || long_form();
    runs_ += takes_part ? 1 : 0;
    return takes_part;
}

bool sanitized()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return false;
#endif
}

void unsanitized_test::SetUp()
{
    if (sanitized()) {
        GTEST_SKIP() << "nothing for a sanitizer: the other builds run this";
    }
}
