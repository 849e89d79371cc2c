// With asynchronous flushing: what handing a tree over costs, and what the flusher at work costs the hooks
// of another thread.
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "calls.h"
#include "scenarios.h"
#include "waiting.h"

namespace ostrum_bench {
namespace {

constexpr int small_tree = 10;
constexpr int big_tree = 10'000;
constexpr int32_t trees_to_write = 10; // big ones, at once: 100,000 records

void call_paths_below(int32_t key, int paths)
{
    static const std::vector<uint32_t> opcodes = shuffled_opcodes(big_tree);
    call_keyed_siblings(key, std::span(opcodes).first(static_cast<size_t>(paths) - 1));
}

void gather(int32_t key, int paths)
{
    start_keyed(key, outer_opcode, "outer");
    call_paths_below(key, paths);
}

void end_outermost(int32_t key)
{
    end_keyed(key, outer_opcode, "outer");
}

// The hand-overs of one kind, each in contexts of its own.
struct handover_kind {
    const char* name;
    int paths;
    bool busy;
    int32_t first_key;
};
constexpr int32_t contexts_a_kind = 21;
constexpr handover_kind kinds[] = {{"asleep", small_tree, false, 0},
                                   {"asleep, big tree", big_tree, false, contexts_a_kind},
                                   {"busy", small_tree, true, 2 * contexts_a_kind},
                                   {"busy, big tree", big_tree, true, 3 * contexts_a_kind}};
constexpr int32_t busy_key = 4 * contexts_a_kind;

void keep_flusher_busy()
{
    for (int32_t key = busy_key; key < busy_key + trees_to_write; ++key) {
        gather(key, big_tree);
    }
    for (int32_t key = busy_key; key < busy_key + trees_to_write; ++key) {
        end_outermost(key);
    }
}

// The time on the wall, and the thread's CPU time: where no processor is free, the flusher that is woken up
// takes the thread's.
void hand_over(const handover_kind& kind, int32_t key, samples& values)
{
    double wall_ns = 0;
    const auto timed = [&wall_ns](auto work) {
        return elapsed_ns(CLOCK_THREAD_CPUTIME_ID, [&] { wall_ns = elapsed_ns(CLOCK_MONOTONIC, work); });
    };
    const double overhead_ns = timed([] {});
    const double cpu_ns = timed([key] { end_outermost(key); });
    values[kind.name].push_back(wall_ns);
    values[std::string(kind.name) + ", CPU time"].push_back(cpu_ns - overhead_ns);
}

void measure_asleep(const handover_kind& kind, const flusher_clock& flusher, samples& values)
{
    for (int32_t key = kind.first_key; key < kind.first_key + contexts_a_kind; ++key) {
        gather(key, kind.paths);
        flusher.wait_until_asleep();
        hand_over(kind, key, values);
    }
}

// All trees are there before the flusher gets its work, which does not last long.
void measure_busy(const handover_kind& kind, samples& values)
{
    for (int32_t key = kind.first_key; key < kind.first_key + contexts_a_kind; ++key) {
        gather(key, kind.paths);
    }
    keep_flusher_busy();
    for (int32_t key = kind.first_key; key < kind.first_key + contexts_a_kind; ++key) {
        hand_over(kind, key, values);
    }
}

// The same wake-up without the library: what no hand-over that wakes a sleeping thread can go below.
class sleeper {
public:
    sleeper() : thread_([this] { sleep_and_clear(); }) {}
    ~sleeper()
    {
        ended_ = true;
        wake();
        thread_.join();
    }
    sleeper(const sleeper&) = delete;
    sleeper& operator=(const sleeper&) = delete;
    void wake()
    {
        {
            const std::scoped_lock guard(mutex_);
            has_work_ = true;
        }
        condition_.notify_one();
    }

private:
    void sleep_and_clear()
    {
        while (!ended_) {
            std::unique_lock guard(mutex_);
            condition_.wait(guard, [this] { return has_work_; });
            has_work_ = false;
        }
    }
    std::mutex mutex_;
    std::condition_variable condition_;
    bool has_work_ = false;
    std::atomic<bool> ended_ = false;
    std::thread thread_;
};

void measure_bare_wakes(samples& values)
{
    sleeper other;
    for (int wake = 0; wake < contexts_a_kind; ++wake) {
        busy_wait(asleep_after);
        values["bare wake"].push_back(elapsed_ns(CLOCK_MONOTONIC, [&other] { other.wake(); }));
    }
}

// ---- latencies ----

constexpr int32_t measured_key = trees_to_write;
constexpr size_t most_pairs = 200'000;
constexpr size_t batch = 1'000;

// Single pairs, less what reading the clock for them takes.
void time_pairs(double clock_overhead_ns, std::vector<double>& latencies)
{
    for (size_t pair = 0; pair < batch; ++pair) {
        const double ns = elapsed_ns(CLOCK_MONOTONIC, [] {
            start_keyed(measured_key, measured_opcode, "measured");
            end_keyed(measured_key, measured_opcode, "measured");
        });
        latencies.push_back(ns - clock_overhead_ns);
    }
}

double clock_overhead_ns()
{
    std::vector<double> empty;
    for (size_t reading = 0; reading < batch; ++reading) {
        empty.push_back(elapsed_ns(CLOCK_MONOTONIC, [] {}));
    }
    return median(empty);
}

// While the flusher works, as its CPU time tells.
void time_pairs_until_asleep(const flusher_clock& flusher, double overhead_ns, std::vector<double>& latencies)
{
    for (double before_ns = -1; before_ns != flusher.ns() && latencies.size() < most_pairs;) {
        before_ns = flusher.ns();
        time_pairs(overhead_ns, latencies);
    }
}

void add_percentiles(const std::string& when, std::vector<double>& latencies, samples& values)
{
    values["p99, " + when].push_back(percentile(latencies, 0.99));
    values["p99.9, " + when].push_back(percentile(latencies, 0.999));
}

void measure_latency_once(const flusher_clock& flusher, samples& values)
{
    for (int32_t key = 0; key < trees_to_write; ++key) {
        call_paths_below(key, big_tree);
        end_outermost(key);
    }
    flusher.wait_until_asleep();
    const double overhead_ns = clock_overhead_ns();
    std::vector<double> quiet;
    std::vector<double> disturbed;
    quiet.reserve(most_pairs);
    disturbed.reserve(most_pairs);
    while (quiet.size() < most_pairs / 2) {
        time_pairs(overhead_ns, quiet);
    }
    for (int32_t key = 0; key < trees_to_write; ++key) {
        start_keyed(key, outer_opcode, "outer"); // hands over what was gathered
    }
    time_pairs_until_asleep(flusher, overhead_ns, disturbed);
    add_percentiles("quiet", quiet, values);
    add_percentiles("flusher at work", disturbed, values);
    values["pairs while the flusher worked"].push_back(static_cast<double>(disturbed.size()));
    values[floor_name].push_back(floor_once());
}

} // namespace

// With a flush each second.
samples measure_handover(int repetitions)
{
    start_library();
    const flusher_clock flusher;
    for (int32_t key = 0; key < busy_key + trees_to_write; ++key) {
        gather(key, small_tree);
        end_outermost(key);
    }
    samples values;
    for (int done = 0; done < repetitions; done += contexts_a_kind) {
        for (const handover_kind& kind : kinds) {
            wait_for_next_second(); // also what kept the flusher busy comes due again
            flusher.wait_until_asleep();
            if (kind.busy) {
                measure_busy(kind, values);
            } else {
                measure_asleep(kind, flusher, values);
            }
        }
        measure_bare_wakes(values);
        values[floor_name].push_back(floor_once());
    }
    return values;
}

// With a maximum of one operation between flushes; that of the measured context stays open.
samples measure_latency(int repetitions)
{
    start_library();
    const flusher_clock flusher;
    for (int32_t key = 0; key <= measured_key; ++key) {
        start_keyed(key, outer_opcode, "outer");
    }
    samples values;
    for (int done = 0; done < repetitions; ++done) {
        measure_latency_once(flusher, values);
    }
    return values;
}

} // namespace ostrum_bench
