// Hosts at work for long, with somebody looking: what they take of the machine stays what it is after a
// while.
#include <algorithm>
#include <iostream>

#include "robustness/several_hosts.h"
#include "support/run_command.h"

namespace {

constexpr int hosts_count = 3;
constexpr int chunk_ms = 500; // of work, between two looks

int seconds_of_work()
{
    const char* asked = getenv("OSTRUM_SOAK_SECONDS");
    return asked != nullptr ? std::atoi(asked) : long_form() ? 60 : 3;
}

// Without what is shared with other processes.
const std::string memory = "sed -n s/RssAnon:/memory_kib=/p /proc/$PPID/status";

// Eight threads at once, which end; keyed contexts, one of which is released; then a new period begins, and
// the host says what it has.
std::string work(int seconds)
{
    // A long run leaves most of the machine to others.
    const std::string pause_us = seconds > 60 ? "5000" : "200";
    const std::string operations = "op 3; start 4; start 5; end; start 6; end 6 37; end; op 7 11; start_fn "
                                   "walk; end_fn walk; flist_op 5; "
                                   "pause " +
                                   pause_us;
    const std::string one_chunk = "threads 8 {during " + std::to_string(chunk_ms) + " {" + operations +
                                  "}}; op_key 1 3; op_key 2 4; release_key 2; ";
    const std::string new_period = sanitized() ? "" : "clock_step 60; ";
    return "init; meet start " + std::to_string(hosts_count) + "; repeat " +
           std::to_string(seconds * 1000 / chunk_ms) + " {" + one_chunk + new_period +
           "select 1; query; descriptors; shell " + memory + "}; exit " + std::to_string(host_status);
}

long median(std::vector<long> figures)
{
    std::nth_element(figures.begin(), figures.begin() + static_cast<ptrdiff_t>(figures.size() / 2),
                     figures.end());
    return figures[figures.size() / 2];
}

// The first third is the warm-up. From then on it has at no time more than so much more than was usual, and
// in the last third it usually has what it had in the second.
void expect_flat(const std::vector<long>& figures, long more)
{
    ASSERT_GE(figures.size(), 3U);
    const auto third = static_cast<ptrdiff_t>(figures.size() / 3);
    const std::vector<long> first(figures.begin(), figures.begin() + third);
    const std::vector<long> second(figures.begin() + third, figures.end() - third);
    const std::vector<long> last(figures.end() - third, figures.end());
    const long most = *std::max_element(figures.begin() + third, figures.end());
    std::cout << "usually " << median(first) << ", " << median(second) << ", " << median(last) << ", at most "
              << most << "\n";
    EXPECT_LE(most, median(first) + more);
    EXPECT_LE(median(last), median(second) + more / 2);
}

#ifdef OSTRUM_TOOL
constexpr const char* looks[] = {"counters", "errors", "vars", "metrics", "check"};

int look_until(const std::atomic<bool>& ended, const std::string& data_file)
{
    int count = 0;
    while (!ended) {
        const command_run look =
            run_command(std::string(OSTRUM_TOOL) + " " +
                        looks[static_cast<size_t>(count) % std::size(looks)] + " " + data_file);
        EXPECT_TRUE(count < hosts_count || look.exit_status == 0) << look.output;
        ++count;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return count;
}
#else
int look_until(const std::atomic<bool>&, const std::string&)
{
    return 1;
}
#endif

} // namespace

TEST(Soak, HostsTakeNoMoreFromHourToHour)
{
    const int seconds = seconds_of_work();
    const host_settings settings{{"ostrum_aggregation_period", "1m"}, {"ostrum_status_check_frequency", "0"},
                                 {"ostrum_max_log_size", "50"},       {"ostrum_async_flushing", "1"},
                                 {"ostrum_auto_flush", "1"},          {"ostrum_error_counter_level", "63"},
                                 {"ostrum_get_process_data", "3"},    {"ostrum_var_flist", "1"},
                                 {"ostrum_var_trace_opcodes", "7"}};
    const host_options options{.directory = new_directory(), .patience_s = seconds * 3 + 60};
    std::vector<host_run> hosts(hosts_count);
    std::atomic<bool> ended{false};
    int looked = 0;
    std::thread watcher([&] { looked = look_until(ended, options.directory->file("ostrum_data.dat")); });
    const auto run = [&](host_run& host) {
        return [&] { host = run_watched(settings, work(seconds), options); };
    };
    at_once({run(hosts[0]), run(hosts[1]), run(hosts[2])});
    ended = true;
    watcher.join();

    for (const host_run& host : hosts) {
        constexpr long block_kib = 1024; // one more of the allocator's
        // Of 8 trees that a flusher without processor time has not come to, and of the 8 threads that end.
        constexpr long files_not_closed_yet = 16;
        if (!sanitized()) { // which keep what is given back
            expect_flat(figures(host, "memory_kib"), block_kib);
        }
        expect_flat(figures(host, "descriptors"), files_not_closed_yet);
        expect_came_through(host, header_lock_ms);
    }
    const observed_run all = look_at(hosts);
    expect_unharmed(all, {.exit_status = host_status});
    EXPECT_GT(looked, 0);
    case_count().add(all.issued);
}
