#ifndef OSTRUM_PERF_LOG_ALARMS_ALARM_CONFIG_H
#define OSTRUM_PERF_LOG_ALARMS_ALARM_CONFIG_H
// The alarm table: per opcode, the elapsed times at which a slow operation is reported. Start-up refuses
// the alarm settings in this build, so nothing reads a table into use; the format and its reader are
// complete all the same.
#include <cstdint>

#include "perf_log/alarms/alarm_limit.h"
#include "perf_log/buckets/opcode_table.h"

namespace ostrum {

inline constexpr int32_t max_alarm_limits = 8;

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

void print_alarm_bucket(const ostrum::alarm_entry* entry);
}
#endif
