#ifndef OSTRUM_DATA_FILE_VARIABLES_H
#define OSTRUM_DATA_FILE_VARIABLES_H
// Named text values in the data file, through which operators steer the tracing of running processes.
// Null entries give null or 0; errno is preserved by the getters. A value that cannot be locked is not
// written, but is still read: a switch must not die with the process that held its lock. Any thread.
#include "data_file/data_file.h"

extern "C" {
// Finds or creates; set != 0 also overwrites. Null after one diagnostic line (bad input, table full), or
// when the lock cannot be had.
ostrum::variable_entry* rt_variable_add(rt_info* handle, const char* name, const char* value, int32_t set);
void rt_variable_set_str(ostrum::variable_entry* entry, const char* value);
// kept on purpose: nothing here calls these two, rt_variable_get_double and perf_data_file_var_set_int
void rt_variable_set_int(ostrum::variable_entry* entry, int32_t n);
void rt_variable_set_double(ostrum::variable_entry* entry, double x);
char* rt_variable_get_str(ostrum::variable_entry* entry); // heap copy, freed by the caller
int32_t rt_variable_get_int(ostrum::variable_entry* entry);
double rt_variable_get_double(ostrum::variable_entry* entry);

// `cache`, null allowed, keeps the entry's address so that later calls skip the search. A write through
// a filled cache does not advance the last-modified time (kept on purpose).
char* perf_data_file_var_get(rt_info* handle, ostrum::variable_entry** cache, const char* name);
int32_t perf_data_file_var_get_int(rt_info* handle, ostrum::variable_entry** cache, const char* name);
int32_t perf_data_file_var_set(rt_info* handle, ostrum::variable_entry** cache, const char* name,
                               const char* value);
int32_t perf_data_file_var_set_int(rt_info* handle, ostrum::variable_entry** cache, const char* name,
                                   int32_t n);
int64_t perf_data_file_var_last_mod_t(rt_info* handle); // ns of the real-time clock

// Copies of the entry of that name or, for a null name, of all, as rt_counters_copy gives them.
ostrum::variable_entry* rt_variables_copy(rt_info* handle, const char* name, int32_t* count);
void rt_variables_debug(rt_info* handle, const char* title);
}
#endif
