#ifndef OSTRUM_TOOL_READERS_TRACE_RECORD_H
#define OSTRUM_TOOL_READERS_TRACE_RECORD_H
// One line of a trace data file. Fields are separated by commas, without quoting, so a name that holds
// commas makes a line with too many fields: the fixed fields at both ends and the numbers between the
// texts then show where each text ends.
#include <cstdint>
#include <string_view>

namespace ostrum_tool {

inline constexpr int32_t period_frame_level = 0;
inline constexpr int32_t max_printed_level = 1024; // the writer stays near 100; more is not a record

// The texts point into the line.
struct start_record {
    int32_t level = 0; // 0 = period frame, 1 = outermost operation, ...
    int32_t opcode = 0;
    int32_t flags = 0;
    std::string_view opname;
    int64_t time_tv = 0; // ns since the epoch; only in a period frame
    std::string_view fname;
    int32_t lineno = 0;
    uint32_t pid = 0;
    uint64_t tid = 0; // 0 for contexts named by a key
    std::string_view program;
    int32_t bucket = 0; // 1 and up: duration bucket of the enclosing path
    std::string_view obj_type;
    int64_t db_num = 0;
};

struct figures {
    int64_t total_tv = 0; // ns; in a period frame the time of the flush
    int64_t total_recs = 0;
    int64_t total_calls = 0;
    int64_t min_tv = 0; // 0 = no call without error
    int64_t max_tv = 0;
    int64_t bs_tv = 0; // bounds of a bucket; 0 = open
    int64_t be_tv = 0;
    int64_t cm_cache_calls = 0;
    int64_t cm_cache_tv = 0;
    int64_t total_errors = 0;
    int64_t user_cpu_tv = 0;
    int64_t sys_cpu_tv = 0;
};

// Each gives null, or what is wrong with the line.
const char* parse_start(std::string_view line, start_record& record);
const char* parse_figures(std::string_view line, figures& record);

// "0", or seconds with up to nine decimals, into ns.
bool parse_seconds(std::string_view text, int64_t& time_tv);

} // namespace ostrum_tool
#endif
