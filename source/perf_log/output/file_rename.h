#ifndef OSTRUM_PERF_LOG_OUTPUT_FILE_RENAME_H
#define OSTRUM_PERF_LOG_OUTPUT_FILE_RENAME_H
// Renaming finished trace and alarm files, for those who collect them.
#include <cstdint>

#include "data_file/data_file.h"

extern "C" {
// 0 when the source is there and the target is not; else, after one diagnostic line, -1 and -2 (no name of
// the source, of the target), -3 (no source), -4 (something has the target's name).
int32_t check_file_rename(const char* source, const char* target);

// Renames; 0, or -1 after one diagnostic line.
int32_t file_rename(const char* source, const char* target);

// Both steps, the second under the file's lock, if there is a file. 0, also when the check failed (kept);
// -1 when the renaming failed.
int32_t __rename_trace_file(rt_info* handle, const char* source, const char* target);
int32_t __rename_alarm_file(rt_info* handle, const char* source, const char* target);
}
#endif
