#include "readers/data_looks.h"

#include <algorithm>
#include <chrono>
#include <tuple>

#include "readers/time_units.h"

namespace ostrum_tool {
namespace {

auto key_of(const operation_counter& counter)
{
    return std::tie(counter.opcode, counter.opname, counter.program, counter.fname, counter.obj_type,
                    counter.opflags, counter.lineno, counter.db_number);
}

auto key_of(const error_counter& error)
{
    return std::tie(error.opcode, error.errnum, error.err_class, error.location, error.dbno, error.opname,
                    error.program);
}

constexpr uint64_t operation_counter::*counter_totals[] = {
    &operation_counter::calls,    &operation_counter::errors,      &operation_counter::recs,
    &operation_counter::total_tv, &operation_counter::user_cpu_tv, &operation_counter::sys_cpu_tv};
constexpr uint64_t error_counter::*error_totals[] = {&error_counter::count};

template <typename Record, size_t Count>
void subtract(Record& now, const Record& before, uint64_t Record::*const (&totals)[Count])
{
    const bool was_reset = std::any_of(std::begin(totals), std::end(totals),
                                       [&](uint64_t Record::*total) { return now.*total < before.*total; });
    for (uint64_t Record::*const total : totals) {
        now.*total -= was_reset ? 0 : before.*total;
    }
}

// Entries keep their place and key while they are in use, so the same place is looked at; another key there
// means that the tables were emptied in between.
template <typename Record, size_t Count>
std::vector<Record> gains_of(const std::vector<Record>& before, const std::vector<Record>& now,
                             uint64_t Record::*const (&totals)[Count])
{
    std::vector<Record> gained = now;
    for (size_t at = 0; at < std::min(before.size(), now.size()); ++at) {
        if (key_of(before[at]) == key_of(now[at])) {
            subtract(gained[at], before[at], totals);
        }
    }
    return gained;
}

} // namespace

look look_at_data_file(const std::string& path)
{
    look made;
    const std::vector<unsigned char> image = read_data_image(path);
    made.monotonic_tv = now_tv<std::chrono::steady_clock>();
    made.local_tv = now_tv<std::chrono::system_clock>();
    made.file = decode_data_file(image);
    return made;
}

std::vector<operation_counter> gains(const std::vector<operation_counter>& before,
                                     const std::vector<operation_counter>& now)
{
    return gains_of(before, now, counter_totals);
}

std::vector<error_counter> gains(const std::vector<error_counter>& before,
                                 const std::vector<error_counter>& now)
{
    return gains_of(before, now, error_totals);
}

} // namespace ostrum_tool
