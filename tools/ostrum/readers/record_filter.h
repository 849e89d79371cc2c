#ifndef OSTRUM_TOOL_READERS_RECORD_FILTER_H
#define OSTRUM_TOOL_READERS_RECORD_FILTER_H
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ostrum_tool {

// Which outermost paths, with all that they call, are summed up. Empty lists and missing times mean all.
struct record_filter {
    std::optional<int64_t> since_tv, until_tv; // ns since the epoch; a period counts by its begin
    std::vector<uint32_t> pids;
    std::vector<uint64_t> tids;
    std::vector<std::string> programs;

    [[nodiscard]] bool allows_time(int64_t time_tv) const
    {
        return time_tv >= since_tv.value_or(INT64_MIN) && time_tv < until_tv.value_or(INT64_MAX);
    }
    [[nodiscard]] bool allows_thread(uint32_t pid, uint64_t tid) const
    {
        return is_named(pids, pid) && is_named(tids, tid);
    }
    [[nodiscard]] bool allows_program(std::string_view program) const { return is_named(programs, program); }

private:
    template <typename Listed, typename Value>
    static bool is_named(const std::vector<Listed>& list, const Value& value)
    {
        return list.empty() || std::find(list.begin(), list.end(), value) != list.end();
    }
};

} // namespace ostrum_tool
#endif
