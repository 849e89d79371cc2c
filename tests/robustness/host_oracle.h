#ifndef OSTRUM_TESTS_ROBUSTNESS_HOST_ORACLE_H
#define OSTRUM_TESTS_ROBUSTNESS_HOST_ORACLE_H
// What must hold of every host process, whatever happens to the tracing library in it. The script host
// checks each call itself (errno, signal mask, cancellation, timestamp, time taken); here stands the rest.
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "data_file/layout.h"
#include "support/run_host.h"

struct observed_run {
    host_run host;
    long issued = -1;                       // hook pairs of all processes that ended through exit
    long finished = 0;                      // those of them that had returned when "exit" was called
    long written = 0;                       // calls in all trace files
    std::map<int, long> calls;              // the same by opcode
    double longest_s = 0;                   // of them
    std::map<std::string, uint64_t> counts; // entries of the data file's tables: "counters" ...
    long faults_hit = 0;                    // by the shim
    long blocks = 0;                        // of the library's memory still in use at the end
    long left_open = 0;                     // descriptors, at the end
    std::string misread;                    // what is wrong with the data file
    int broken_lines = 0;                   // of trace files: no records
    std::string first_broken;
    int cut_files = 0; // trace files whose last record is not whole

    // Messages other than those of a start without incident.
    [[nodiscard]] std::string incidents() const;
    [[nodiscard]] bool tells(const char* part) const { return incidents().find(part) != std::string::npos; }
    [[nodiscard]] bool enabled() const { return host.logging_enabled(); }
    [[nodiscard]] long calls_of(int opcode) const { return calls.count(opcode) != 0 ? calls.at(opcode) : 0; }
};

using host_settings = std::vector<host_setting>;
host_settings with(host_settings settings, const host_settings& more);

// The ways in which trace files are written, by flushes of two operations each.
struct writing {
    const char* name;
    host_settings settings;
};
const std::vector<writing>& ways();

// Runs the script under the fault shim and the oracle, with timing to files on unless the settings say else.
observed_run observe(const host_settings& settings, const std::string& script,
                     const host_options& options = {});

// The same in two steps, for hosts that run at the same time in one directory: each by itself, then what they
// say together and what lies in the directory.
std::shared_ptr<temp_dir> new_directory();
host_run run_watched(const host_settings& settings, const std::string& script, const host_options& options);
observed_run look_at(const std::vector<host_run>& hosts);
// The lines "NAME=NUMBER" in the output, of which each process of the run may print one; and their sum.
std::vector<long> figures(const host_run& run, const std::string& name);
long reported(const host_run& run, const std::string& name);
std::shared_ptr<const ostrum::data_file_image> map_data_file(const std::string& path); // null: another size

struct expectation {
    int exit_status = 0;
    bool complete = false;          // there is no incident, and all calls are in the files
    bool may_cut = false;           // a full disk may cut the last record of a file
    bool untold = false;            // what is lost is lost without a message: nowhere to write it to
    bool damaged_data_file = false; // it may stay so
    int killed = 0;       // processes; each may leave one line that is cut, in a file that others write on
    bool at_work = false; // threads go on while the process ends: only what they have finished must be there
    bool uncounted = false;                    // they also go on behind the count of what they do
    const observed_run* undisturbed = nullptr; // the same script without the fault
};

// EXPECTs that the run bears out all of it.
void expect_unharmed(const observed_run& run, const expectation& expected);

// The long forms (scripts/stress) run every case of a table, the short ones of the ordinary tests a part of
// it, another one for each seed. The seed is printed.
bool long_form();
unsigned seed();

// The cases of a table, and what has been run of them, which is printed.
class case_count {
public:
    case_count() = default;
    ~case_count();
    case_count(const case_count&) = delete;
    case_count& operator=(const case_count&) = delete;

    // Whether the next one takes part: in the long form, and one of so many in the short one.
    bool next(unsigned one_of = 1, bool always = false);
    void add(long runs) { runs_ += runs; }
    [[nodiscard]] long made() const { return runs_; }

private:
    unsigned number_ = 0;
    long runs_ = 0;
};

// True where a preloaded shim would come in the way of a sanitizer's own.
bool sanitized();

// For what a sanitizer does not see (several processes, what a killed one leaves behind) or has itself (the
// allocator, system calls): the other builds run these.
class unsanitized_test : public testing::Test {
protected:
    void SetUp() override;
};
#endif
