#ifndef OSTRUM_DATA_FILE_DATA_FILE_H
#define OSTRUM_DATA_FILE_DATA_FILE_H
// The shared data file: opening, creating, resetting and closing its mapping, and the process's own
// handle. The layout is in layout.h, the locks in locks.h, the tables in counters.h, errors.h and
// variables.h.
#include <cstdint>

#include "data_file/layout.h"

// Process-local handle of an opened data file. Owned by whoever opened it.
struct rt_info {
    ostrum::data_file_image* image; // the mapping
    int32_t fd;                     // the open file; never 0, 1 or 2
    char* path;                     // owned copy
};

enum data_file_open_flags : uint32_t {
    DATA_FILE_INIT_LOCKS = 1, // initialise the five header lock slots even if the file exists
    DATA_FILE_RESET = 2,      // reset the contents even if the file exists
    DATA_FILE_MUST_EXIST = 4, // do not create
    DATA_FILE_SET_PID = 8     // write the caller's process id into the header
};

extern "C" {
// A new handle, which the caller closes, or null after one diagnostic line (silently when memory for the
// handle is short).
rt_info* __perf_data_file_open(const char* path, uint32_t flags);
// Unmaps, closes, unlinks when asked, frees; each failing step is reported and the next still runs.
void __perf_data_file_close(rt_info* handle, int32_t unlink);

// Size of the file, or -1 after one diagnostic line.
int64_t perf_file_size(const char* path);

// The configured name of the data file (kept on purpose: nothing here calls it), and the process's own handle
// (null before start-up opened it).
const char* perf_log_datafile_name(void);
rt_info* __ostrum_get_data_file_handle(void);
}

namespace ostrum {
void set_data_file_handle(rt_info* handle); // start-up only; the handle is never closed
}
#endif
