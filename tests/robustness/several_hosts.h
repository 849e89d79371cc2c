#ifndef OSTRUM_TESTS_ROBUSTNESS_SEVERAL_HOSTS_H
#define OSTRUM_TESTS_ROBUSTNESS_SEVERAL_HOSTS_H
// Hosts that run at the same time in one directory, and programs that look at their data file meanwhile.
#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "robustness/host_oracle.h"

// ways(), then a shared file with the other lock method; all with error counters.
const std::vector<writing>& ways_of_several();

// Looks at the data file of a directory, from the moment at which it is there, all the time.
class counter_watch {
public:
    explicit counter_watch(const temp_dir& directory);
    ~counter_watch();
    counter_watch(const counter_watch&) = delete;
    counter_watch& operator=(const counter_watch&) = delete;

    void stop();
    // Empty, or the first figure that has become smaller or entry that has become another one. After stop().
    [[nodiscard]] const std::string& fallen() const { return fallen_; }
    [[nodiscard]] uint64_t calls_of(uint64_t opcode) const; // 0 also where no file is
    [[nodiscard]] long variables_named(const std::string& name) const;

private:
    void look_until_stopped();
    void look();

    std::string path_;
    std::shared_ptr<const ostrum::data_file_image> image_;
    std::map<size_t, ostrum::counter_entry> seen_;
    uint64_t seen_counts_[3] = {};
    std::string fallen_;
    std::atomic<bool> stopped_{false};
    std::thread thread_;
};

// ---- What they do: half of their calls are of an opcode that no other host has, half of 3 ----

std::string work_of(int own_opcode);
// Comes up, meets the others ("start"), works for so long, or until there is a file "done", and exits with
// host_status.
std::string host_at_work(int own_opcode, int hosts_that_meet, int work_ms);
std::string host_at_work_until_done(int own_opcode, int hosts_that_meet);
// Meets the others and comes up later, works some_work times and exits.
std::string host_that_starts(int own_opcode, int hosts_that_meet, int late_ms);
constexpr uint64_t some_work = 20;
constexpr uint64_t outermost_of_some_work = 2 * some_work; // calls of the own opcode in the data file
constexpr int host_status = 5;
// The host that starts when something has been killed.
extern const std::string next_host;
constexpr int next_opcode = 30;

// How long the slowest hook may take, on a machine that does nothing else: as long as the locks that a dead
// process holds may be waited for.
constexpr int no_lock_ms = 0;
constexpr int header_lock_ms = 1000;
constexpr int nested_locks_ms = 2 * 1000;
constexpr int trace_lock_ms = 10'000;

// The host has ended as it should, and no hook took longer.
void expect_came_through(const host_run& host, int limit_ms);
// The same, and all of its calls are in the files.
void expect_at_work(const observed_run& all, const host_run& host, int own_opcode, int limit_ms);
// After watch.stop(): the next host came up and counts.
void expect_next_host(const observed_run& all, const host_run& host, const counter_watch& watch);
// Calls of a killed host are in the files, but nobody knows how many it has issued.
void expect_nothing_harmed(observed_run all, bool one_was_killed);

// Runs all of them, each in a thread.
void at_once(const std::vector<std::function<void()>>& bodies);
#endif
