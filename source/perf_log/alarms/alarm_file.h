#ifndef OSTRUM_PERF_LOG_ALARMS_ALARM_FILE_H
#define OSTRUM_PERF_LOG_ALARMS_ALARM_FILE_H
// Alarm files: one record each time an alarm is raised, in a tagged or in a plain text form.
#include <cstdint>

#include "perf_log/alarms/alarm_record.h"
#include "util/resources.h"

extern "C" {
// Appends the record to the alarm file of its thread and period, or to the one that all share. `file`,
// null allowed, keeps a thread's file open from one record to the next; with a non-zero `close` it is
// closed after the record. A record that cannot be written is dropped after one diagnostic line.
void perf_alarm_persist(ostrum::unique_fd* file, const ostrum::alarm_record* alarm, int32_t close);
}
#endif
