// The shared data file: a monitor that polls it, and how its tables behave when they are full.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <string>
#include <thread>

#include <ostrum_data.h>
#include <sys/mman.h>
#include <sys/prctl.h>

#include "calls.h"
#include "scenarios.h"

namespace ostrum_bench {
namespace {

constexpr int polled_counters = 1'000;
constexpr uint32_t measured_counter = 4'000;
constexpr int full_table = 4'096;
constexpr int32_t all_fields = OSTRUM_BY_OPCODE | OSTRUM_BY_OBJ_TYPE | OSTRUM_BY_PROGRAM | OSTRUM_BY_OPFLAGS |
                               OSTRUM_BY_FNAME | OSTRUM_BY_LINENO | OSTRUM_BY_DB_NUMBER;

void call_outermost(uint32_t opcode)
{
    start_op(opcode, "operation");
    end_op(opcode, "operation");
}

// ---- a monitor beside the host ----

// Shared with the monitor: whether it polls at present.
using polling_flag = std::atomic<bool>;

[[noreturn]] void monitor(const polling_flag& polling)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    rt_info* file = nullptr;
    for (;;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        if (!polling) {
            continue;
        }
        file = file != nullptr ? file : ostrum_data_file_open("ostrum_data.dat");
        int32_t count = 0;
        ostrum_counters_destroy(ostrum_counters_get_aggr(file, 0, &count, OSTRUM_BY_OPCODE));
    }
}

polling_flag& start_monitor()
{
    void* shared =
        mmap(nullptr, sizeof(polling_flag), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
        throw std::runtime_error("no shared memory");
    }
    auto* polling = new (shared) polling_flag(false);
    if (fork() == 0) {
        monitor(*polling);
    }
    return *polling;
}

// ---- full tables ----

// Records that differ from one another in every field.
void fill_table()
{
    for (int record = 0; record < full_table; ++record) {
        const std::string number = std::to_string(record);
        const std::string name = "operation " + number;
        const std::string program = "program " + number;
        const std::string file = "file " + number;
        const std::string type = "/type/" + number;
        const auto opcode = first_sibling_opcode + static_cast<uint32_t>(record);
        const auto flags = static_cast<uint32_t>(record);
        ostrum_log_start_fn(opcode, name.c_str(), flags, program.c_str(), file.c_str(), record + 1,
                            type.c_str(), record);
        ostrum_log_end_fn(opcode, name.c_str(), flags, 0, program.c_str(), file.c_str(), record + 1,
                          type.c_str(), record, 0, 0, 0);
    }
}

double query_ms(rt_info* file, int32_t field_mask)
{
    int32_t count = 0;
    const double ns = elapsed_ns(CLOCK_THREAD_CPUTIME_ID, [&] {
        ostrum_counters_destroy(ostrum_counters_get_aggr(file, 0, &count, field_mask));
    });
    if (count != full_table) {
        throw std::runtime_error("the counter table was not filled");
    }
    return ns / 1e6;
}

} // namespace

void register_monitored()
{
    static polling_flag& polling = start_monitor(); // forked before the library is up
    start_library();
    for (int counter = 0; counter < polled_counters; ++counter) {
        call_outermost(first_sibling_opcode + static_cast<uint32_t>(counter));
    }
    for (const bool polled : {false, true}) {
        register_timed(polled ? "polled" : "alone", [polled](benchmark::State& state) {
            polling = polled;
            for (auto _ : state) {
                call_outermost(measured_opcode);
            }
        })->UseRealTime();
    }
}

samples measure_last_counter(int /*repetitions*/)
{
    start_library();
    for (uint32_t counter = 1; counter < measured_counter; ++counter) {
        call_outermost(first_sibling_opcode + counter);
    }
    const double insert_ns =
        elapsed_ns(CLOCK_MONOTONIC, [] { call_outermost(first_sibling_opcode + measured_counter); });
    return {{floor_name, {floor_once()}}, {"insert, ms", {insert_ns / 1e6}}};
}

// One figure: the median of the mask that takes longest.
samples measure_query(int repetitions)
{
    start_library();
    fill_table();
    rt_info* file = ostrum_data_file_get();
    double slowest_ms = 0;
    for (int32_t mask = 1; mask <= all_fields; ++mask) {
        std::vector<double> times;
        times.reserve(static_cast<size_t>(repetitions));
        for (int done = 0; done < repetitions; ++done) {
            times.push_back(query_ms(file, mask));
        }
        slowest_ms = std::max(slowest_ms, median(times));
    }
    return {{floor_name, {floor_once()}}, {"slowest mask, ms", {slowest_ms}}};
}

} // namespace ostrum_bench
