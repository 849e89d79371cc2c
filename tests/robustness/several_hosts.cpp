#include "robustness/several_hosts.h"

#include <chrono>
#include <cstring>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using ostrum::counter_entry;
using ostrum::data_file_image;

const data_file_image* map_data_file(const std::string& path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    const bool whole = fd >= 0 && fstat(fd, &status) == 0 && status.st_size == sizeof(data_file_image);
    void* const image =
        whole ? mmap(nullptr, sizeof(data_file_image), PROT_READ, MAP_SHARED, fd, 0) : MAP_FAILED;
    close(fd);
    return image != MAP_FAILED ? static_cast<const data_file_image*>(image) : nullptr;
}

uint64_t now_in(const uint64_t& word)
{
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

constexpr uint64_t counter_entry::*totals[] = {&counter_entry::calls, &counter_entry::errors,
                                               &counter_entry::total_t};

} // namespace

const std::vector<writing>& ways_of_several()
{
    static const std::vector<writing> all = [] {
        std::vector<writing> made = ways();
        made.push_back(made[1]);
        made.back().name = "advisory locks";
        made.back().settings.push_back({"ostrum_lock_method", "1"});
        for (writing& way : made) {
            way.settings.push_back({"ostrum_error_counter_level", "63"});
        }
        return made;
    }();
    return all;
}

counter_watch::counter_watch(const temp_dir& directory)
    : path_(directory.file("ostrum_data.dat")), thread_([this] { look_until_stopped(); })
{}

counter_watch::~counter_watch()
{
    stop();
    if (image_ != nullptr) {
        munmap(const_cast<data_file_image*>(image_), sizeof(*image_));
    }
}

void counter_watch::stop()
{
    stopped_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

void counter_watch::look_until_stopped()
{
    while (!stopped_) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        look();
    }
    look();
}

void counter_watch::look()
{
    image_ = image_ != nullptr ? image_ : map_data_file(path_);
    if (image_ == nullptr || !fallen_.empty()) {
        return;
    }
    const size_t count = now_in(image_->counter_count);
    const size_t errors = now_in(image_->error_count);
    const size_t variables = now_in(image_->variable_count);
    if (count < seen_.size() || errors < seen_errors_ || variables < seen_variables_) {
        fallen_ = "entries of a table";
    }
    seen_errors_ = errors;
    seen_variables_ = variables;
    for (size_t index = 0; index < count; ++index) {
        const counter_entry& entry = image_->counters[index];
        counter_entry& seen = seen_.try_emplace(index, entry).first->second;
        if (now_in(entry.opcode) != seen.opcode) {
            fallen_ = "counter " + std::to_string(index) + " has become that of another operation";
        }
        for (uint64_t counter_entry::*const total : totals) {
            const uint64_t now = now_in(entry.*total);
            if (now < seen.*total) {
                fallen_ = "counter " + std::to_string(index) + " from " + std::to_string(seen.*total) +
                          " to " + std::to_string(now);
            }
            seen.*total = now;
        }
    }
}

uint64_t counter_watch::calls_of(uint64_t opcode) const
{
    uint64_t calls = 0;
    for (size_t index = 0; image_ != nullptr && index < image_->counter_count; ++index) {
        calls += image_->counters[index].opcode == opcode ? image_->counters[index].calls : 0;
    }
    return calls;
}

int counter_watch::variables_named(const std::string& name) const
{
    int found = 0;
    for (size_t index = 0; image_ != nullptr && index < image_->variable_count; ++index) {
        found += image_->variables[index].name == name ? 1 : 0;
    }
    return found;
}

std::string work_of(int own_opcode)
{
    const std::string own = std::to_string(own_opcode);
    return "op 3; start 3; start " + own + "; end; end; op " + own + " 7; op_key 1 3; op_key 2 " + own + "; ";
}

std::string host_at_work(int own_opcode, int hosts_that_meet, int work_ms)
{
    return "init; " + work_of(own_opcode) + "meet start " + std::to_string(hosts_that_meet) + "; during " +
           std::to_string(work_ms) + " {repeat 5 {" + work_of(own_opcode) + "}; variable v" +
           std::to_string(own_opcode) + " 1; query}; exit " + std::to_string(host_status);
}

namespace {

std::string coming_up_and_working(int own_opcode)
{
    return "init; repeat " + std::to_string(some_work) + " {" + work_of(own_opcode) + "}; query; exit " +
           std::to_string(host_status);
}

} // namespace

std::string host_that_starts(int own_opcode, int hosts_that_meet, int late_ms)
{
    return "meet start " + std::to_string(hosts_that_meet) + "; sleep " + std::to_string(late_ms) + "; " +
           coming_up_and_working(own_opcode);
}

const std::string next_host = coming_up_and_working(next_opcode);

void at_once(const std::vector<std::function<void()>>& bodies)
{
    std::vector<std::thread> threads(bodies.begin(), bodies.end());
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void expect_came_through(const host_run& host, int limit_ms)
{
    EXPECT_EQ(host.exit_status, host_status) << host.errors;
    EXPECT_TRUE(host.logging_enabled()) << host.errors;
    EXPECT_EQ(host.output.find("BAD"), std::string::npos) << host.output;
    EXPECT_LE(reported(host, "slowest_us"), limit_ms * 1000L);
    EXPECT_GT(reported(host, "issued"), 0);
}

void expect_at_work(const observed_run& all, const host_run& host, int own_opcode, int limit_ms)
{
    const auto written = all.calls.find(own_opcode);
    expect_came_through(host, limit_ms);
    EXPECT_EQ((written != all.calls.end() ? written->second : 0) * 2, reported(host, "issued"))
        << "of operation " << own_opcode;
}

void expect_next_host(const observed_run& all, const host_run& host, const counter_watch& watch)
{
    expect_at_work(all, host, next_opcode, nested_locks_ms);
    EXPECT_EQ(watch.calls_of(next_opcode), outermost_of_some_work) << "the data file is not in use again";
    EXPECT_EQ(watch.fallen(), "");
}

void expect_nothing_harmed(observed_run all, bool one_was_killed)
{
    all.issued = one_was_killed ? all.written : all.issued;
    expect_unharmed(all, {.exit_status = host_status, .may_cut = one_was_killed});
    EXPECT_EQ(all.incidents(), "");
}
