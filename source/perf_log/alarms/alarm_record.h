#ifndef OSTRUM_PERF_LOG_ALARMS_ALARM_RECORD_H
#define OSTRUM_PERF_LOG_ALARMS_ALARM_RECORD_H
// One slow operation that has passed an alarm limit, as it was when the alarm was raised. A record and
// its levels are one heap block, made by the thread that raises the alarm and only read afterwards.
#include <cstdint>

#include "data_file/layout.h"
#include "host_abi/host_services.h"
#include "perf_log/aggregation/aggregation_period.h"
#include "perf_log/alarms/alarm_config.h"

namespace ostrum {

inline constexpr size_t correlation_text_bytes = 256;

enum class alarm_type : int32_t { final = 0, interim = 1 };

struct alarm_level {         // one level of the operation stack
    char opname[text_bytes]; // the operation's own name, or the host's name of its opcode
    char fname[text_bytes];  // source file
    int64_t start_tv;        // ns; the begin of the whole operation, flushed parts included
    int32_t opcode;
    int32_t line;
    uint32_t flags;
    int32_t level;    // 0 = outermost
    int32_t sequence; // of the operation in its context
    char* in_flist;   // text of the input list, owned; null = not recorded
};

struct alarm_record {
    alarm_record* next;       // in the flusher's queue
    const alarm_limit* limit; // the one that was passed; borrowed from the alarm table
    int64_t alarm_tv;         // ns, when the alarm was raised
    alarm_type type;
    int64_t elapsed_tv; // ns, of the outermost operation
    char correlation_id[correlation_text_bytes];
    int32_t top_sequence;
    int32_t level_count; // 1, or the whole stack
    alarm_level* levels; // from the outermost down
    uint32_t pid;
    uint64_t tid; // 0 for a keyed context
    char start_text[period_text_bytes];
    char end_text[period_text_bytes];
};

// A zeroed record with room for so many levels; null after one diagnostic line.
alarm_record* perf_create_alarm_object(int32_t level_count);
void release_alarm(alarm_record* alarm); // with its texts; null allowed

const char* type_text(const alarm_record& alarm); // "interim" or "final"

} // namespace ostrum

extern "C" {
// The list's masked text in a block of the library's heap, which the caller releases. With a maximum, a
// text that does not fit or cannot be made is replaced by a note, cut to the maximum. Null for a null
// list, without a host, and, after one diagnostic line, when memory is short.
char* perf_flist_str(qel_flist_t* list, int32_t max_bytes);

// Debug listing of the alarm and of each level.
void perf_async_debug_alarm(const ostrum::alarm_record* alarm);
}
#endif
