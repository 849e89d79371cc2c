#ifndef OSTRUM_PERF_LOG_FLUSH_ALARM_DETECTION_H
#define OSTRUM_PERF_LOG_FLUSH_ALARM_DETECTION_H
// When an operation has passed an alarm limit, and the record that is made of it then. Nothing attaches
// limits to a context in this build: start-up refuses the settings.
#include <cstdint>

#include "perf_log/alarms/alarm_record.h"
#include "perf_log/context/log_context.h"

namespace ostrum {

// What the end of an outermost operation says of it: the frame of one that is not timed keeps no texts.
struct ended_call {
    const char* opname;
    const char* fname;
    int32_t line;
};

// From the timed flush: the operation in progress has come to its next alarm time.
void raise_interim_alarm_when_due(log_context& context, int64_t now_tv);
// At the end of an outermost operation, before its frame is cleared.
void raise_final_alarm(log_context& context, const ended_call& ended, int64_t elapsed_tv, int64_t now_tv);

} // namespace ostrum

extern "C" {
// Sets the context's current limit to the one that its outermost operation, in progress, reaches next.
// Returns the moment at which that is so, in nanoseconds; 0 when it is decided at the operation's end.
int64_t alarm_bucket_get_next_time(ostrum::log_context* context, int64_t now_tv);

// Raises an alarm at the limit: writes its record, or hands it to the flusher. A limit without an alarm
// raises none. A final alarm with `ended`, an interim one with null. The caller holds the context's lock.
void write_alarm(ostrum::log_context* context, const ostrum::alarm_limit* limit,
                 const ostrum::ended_call* ended, int64_t elapsed_tv, int64_t now_tv);
}
#endif
