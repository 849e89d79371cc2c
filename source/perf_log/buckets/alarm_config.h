#ifndef OSTRUM_PERF_LOG_BUCKETS_ALARM_CONFIG_H
#define OSTRUM_PERF_LOG_BUCKETS_ALARM_CONFIG_H
// The alarm table: per opcode, the elapsed times at which a slow operation is reported. Start-up refuses
// the alarm settings in this build, so nothing reads a table into use; the format and its reader are
// complete all the same.
#include <cstddef>
#include <cstdint>

#include "perf_log/buckets/opcode_table.h"

namespace ostrum {

inline constexpr int32_t max_alarm_limits = 8;
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

struct alarm_entry {
    uint32_t opcode; // unused_opcode = free entry; 0 = the default entry
    int32_t limit_count;
    alarm_limit limits[max_alarm_limits]; // in the order of the file
};

using alarm_table = alarm_entry[opcode_table_size];

} // namespace ostrum

extern "C" {
// Fills the table from the file, or from a text that holds the default entry's limits alone; exactly one
// of the two is given. Returns named entries plus one for a default entry, or -1 after diagnostic lines.
int32_t read_alarm_buckets(const char* path, const char* text, ostrum::alarm_table* table);

// Parses "threshold,flags,severity". 0, or 0xFFFFFFFF after diagnostic lines.
uint32_t parse_alarm_definition(const char* text, ostrum::alarm_limit* limit, int32_t index);

// Writes the flags as "[0x7] (LOG-FLIST[YES] ...)" and returns the buffer; an empty text without flags,
// buffer or room.
char* get_alarm_flags_descr(uint32_t flags, int32_t out_bytes, char* out);

void print_alarm_bucket(const ostrum::alarm_entry* entry);
}
#endif
