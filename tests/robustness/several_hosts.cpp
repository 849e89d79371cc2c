#include "robustness/several_hosts.h"

#include <algorithm>
#include <chrono>

namespace {

using ostrum::counter_entry;

uint64_t now_in(const uint64_t& word)
{
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

} // namespace

const std::vector<writing>& ways_of_several()
{
    static const std::vector<writing> all = [] {
        std::vector<writing> made = ways();
        made.push_back({"advisory locks", with(made[1].settings, {{"ostrum_lock_method", "1"}})});
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
    const auto must_not_fall = [this](uint64_t& seen, const uint64_t& word, const std::string& what) {
        const uint64_t now = now_in(word);
        if (now < seen) {
            fallen_ = what + " from " + std::to_string(seen) + " to " + std::to_string(now);
        }
        seen = now;
    };
    must_not_fall(seen_counts_[0], image_->counter_count, "counters");
    must_not_fall(seen_counts_[1], image_->error_count, "errors");
    must_not_fall(seen_counts_[2], image_->variable_count, "variables");
    for (size_t index = 0; index < seen_counts_[0]; ++index) {
        const counter_entry& entry = image_->counters[index];
        counter_entry& seen = seen_.try_emplace(index, entry).first->second;
        if (now_in(entry.opcode) != seen.opcode) {
            fallen_ = "counter " + std::to_string(index) + " has become that of another operation";
        }
        for (const auto total : {&counter_entry::calls, &counter_entry::errors, &counter_entry::total_t}) {
            must_not_fall(seen.*total, entry.*total, "counter " + std::to_string(index));
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

long counter_watch::variables_named(const std::string& name) const
{
    return image_ == nullptr ? 0
                             : std::count_if(image_->variables, image_->variables + image_->variable_count,
                                             [&name](const auto& variable) { return variable.name == name; });
}

std::string work_of(int own_opcode)
{
    const std::string own = std::to_string(own_opcode);
    return "op 3; start 3; start " + own + "; end; end; op " + own + " 7; op_key 1 3; op_key 2 " + own + "; ";
}

namespace {

std::string working(int own_opcode, int hosts_that_meet, const std::string& how_long)
{
    const std::string work = work_of(own_opcode);
    return "init; " + work + "meet start " + std::to_string(hosts_that_meet) + "; " + how_long +
           " {repeat 5 {" + work + "}; variable v" + std::to_string(own_opcode) + " 1; query}; exit " +
           std::to_string(host_status);
}

std::string coming_up_and_working(int own_opcode)
{
    return "init; repeat " + std::to_string(some_work) + " {" + work_of(own_opcode) + "}; query; exit " +
           std::to_string(host_status);
}

} // namespace

std::string host_at_work(int own_opcode, int hosts_that_meet, int work_ms)
{
    return working(own_opcode, hosts_that_meet, "during " + std::to_string(work_ms));
}

std::string host_at_work_until_done(int own_opcode, int hosts_that_meet)
{
    return working(own_opcode, hosts_that_meet, "until done");
}

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
    const int busy_machine_ms = long_form() ? 1000 : 3000; // what comes on top
    EXPECT_LE(reported(host, "slowest_us"), (limit_ms + busy_machine_ms) * 1000L);
    EXPECT_GT(reported(host, "issued"), 0);
}

void expect_at_work(const observed_run& all, const host_run& host, int own_opcode, int limit_ms)
{
    expect_came_through(host, limit_ms);
    EXPECT_EQ(all.calls_of(own_opcode) * 2, reported(host, "issued")) << "of operation " << own_opcode;
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
    expect_unharmed(all, {.exit_status = host_status, .complete = true, .may_cut = one_was_killed});
}
