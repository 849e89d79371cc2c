#ifndef OSTRUM_DATA_H
#define OSTRUM_DATA_H
/* Ostrum: the shared data file, for monitoring tools and host code.
 *
 * Every process that loads the library maps one file (by default "ostrum_data.dat" in its current
 * directory) that holds live operation counters, error counters, the variables that steer tracing, and
 * process metrics. Its layout is fixed and published in docs/formats.md. */
#include <stdint.h>

#include "ostrum_util.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Handle of an opened data file. */
typedef struct rt_info rt_info;

/* The process's own data file, opened at full start-up; null where there is none. Stays the library's:
 * never close it. Runs the quiet start-up when nothing has started the library yet. */
OSTRUM_API rt_info *ostrum_data_file_get(void);

/* Opens an existing data file for a monitoring tool; never creates one. Runs the quiet start-up first.
 * Null after one diagnostic line (missing, a directory, wrong size, no access, no memory map). The
 * caller closes it. */
OSTRUM_API rt_info *ostrum_data_file_open(const char *path);

/* Unmaps and closes; null allowed. The file stays on disk. No other call may be using the handle. */
OSTRUM_API void ostrum_data_file_close(rt_info *file);

/* Process id of the host process that last opened the file; 0 for a null handle. */
OSTRUM_API int32_t ostrum_data_file_get_pid(const rt_info *file);

/* The file's signature text, which serves as its version; points into the mapping, valid until the
 * handle is closed; null for a null handle. */
OSTRUM_API const char *ostrum_data_file_get_version(const rt_info *file);

#ifdef __cplusplus
}
#endif
#endif
