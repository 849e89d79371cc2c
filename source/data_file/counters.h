#ifndef OSTRUM_DATA_FILE_COUNTERS_H
#define OSTRUM_DATA_FILE_COUNTERS_H
// Live operation counters: totals per operation across all processes that share the data file. Null handles
// and entries are ignored, errno is preserved. Any thread.
#include "data_file/data_file.h"

extern "C" {
// Adds to the entry of this key, made when missing. Returns its address in the mapping, which the
// caller may keep for rt_counter_update; null when the table is full or its lock cannot be had.
// Null texts count as empty; times in nanoseconds. Takes the table lock, then the entry's.
ostrum::counter_entry* rt_counter_add(rt_info* handle, int32_t opcode, const char* opname, uint32_t opflags,
                                      int32_t lineno, const char* program, const char* fname,
                                      const char* obj_type, int64_t db_number, int64_t calls, int64_t errors,
                                      int64_t recs, int64_t total_t, int64_t u_cpu_t, int64_t s_cpu_t);
// Adds to an entry that rt_counter_add returned; on every operation's path. Takes the entry's lock only;
// left out when that cannot be had.
void rt_counter_update(ostrum::counter_entry* entry, int64_t calls, int64_t errors, int64_t recs,
                       int64_t total_t, int64_t u_cpu_t, int64_t s_cpu_t);
// Set the totals to 0; keys stay. Of one entry: kept on purpose, nothing here calls it.
void rt_counter_reset(ostrum::counter_entry* entry);
void rt_counters_reset(rt_info* handle);
// A heap array of copies of all entries in use, freed by the caller; null, and *count 0, for none or when
// memory is short. `count` may be null. With `reset` the totals in the file are set to 0 as they are copied.
// Copies are taken even where a lock cannot be had, so that the file of a dead host can be looked at;
// nothing is reset then. Texts in the copies are terminated whatever the file holds.
ostrum::counter_entry* rt_counters_copy(rt_info* handle, int32_t reset, int32_t* count);
}
#endif
