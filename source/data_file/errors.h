#ifndef OSTRUM_DATA_FILE_ERRORS_H
#define OSTRUM_DATA_FILE_ERRORS_H
// Error counters: how often each kind of error came up, across all processes that share the data file.
// Null handles and entries are ignored, errno is preserved. Any thread.
// Which attributes tell kinds apart is the caller's choice (setting "ostrum_error_counter_level").
#include "data_file/data_file.h"

extern "C" {
// Adds to the entry of this key, made when missing; null when the table is full or locked up.
ostrum::error_entry* rt_error_add(rt_info* handle, int64_t dbno, int32_t opcode, const char* opname,
                                  const char* program, uint32_t err_class, uint32_t location, uint32_t errnum,
                                  int64_t errcnt);
// Change one entry; the caller holds the table lock.
void rt_error_update(ostrum::error_entry* entry, int64_t n);
void rt_error_reset(ostrum::error_entry* entry);
void rt_errors_reset(rt_info* handle);
// As rt_counters_copy; short memory is reported in one diagnostic line.
ostrum::error_entry* rt_errors_copy(rt_info* handle, int32_t reset, int32_t* count);
}
#endif
