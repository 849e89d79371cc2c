#ifndef OSTRUM_PERF_LOG_ALARMS_ALARM_LIMIT_H
#define OSTRUM_PERF_LOG_ALARMS_ALARM_LIMIT_H
// One alarm limit: an elapsed time, and what is done when an operation has passed it.
#include <cstddef>
#include <cstdint>

namespace ostrum {

inline constexpr size_t severity_bytes = 32; // with the terminator

enum alarm_flags : uint32_t {
    alarm_raised = 0x1,
    alarm_log_flist = 0x2,  // with the text of the input field list
    alarm_full_stack = 0x4, // every level of the stack, not only the operation itself
    alarm_recurring = 0x8,  // last limit only: again at each further multiple of its threshold
    alarm_tagged = 0x10     // the record goes to the tagged file
};

struct alarm_limit {
    int64_t threshold_tv;    // ns, elapsed time at which the limit is reached
    int32_t index;           // in its entry, from 0
    uint32_t flags;          // alarm_flags; 0 = a threshold without an alarm
    int32_t max_flist_bytes; // longest text of an input list to record; 0 = any
    char severity[severity_bytes];
};

} // namespace ostrum

extern "C" {
// Parses "threshold,flags,severity". 0, or 0xFFFFFFFF after diagnostic lines.
uint32_t parse_alarm_definition(const char* text, ostrum::alarm_limit* limit, int32_t index);

// Writes the flags as "[0x7] (LOG-FLIST[YES] ...)" and returns the buffer; an empty text without flags,
// buffer or room.
char* get_alarm_flags_descr(uint32_t flags, int32_t out_bytes, char* out);
}
#endif
