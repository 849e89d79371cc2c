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
 * never close it. Runs the quiet start-up when nothing has started the library yet: a host that calls it
 * before ostrum_init() or a hook is not traced for the rest of its life. */
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
 * handle is closed; null for a null handle. Look at 32 bytes at most: in a damaged file it may go on
 * far behind them. */
OSTRUM_API const char *ostrum_data_file_get_version(const rt_info *file);

/* ---- Snapshots -------------------------------------------------------------------------------- */

/* A snapshot is a list of record addresses with a null behind the last one. It belongs to the caller, who
 * gives it to the matching destroy call; the records live until then. Records are read through the getters
 * below. Texts are always terminated, whatever is in the file. Every call takes the file's table lock for
 * the time of the copy and may be made by any thread. A null handle gives null and a count of 0. */
typedef struct ostrum_counter ostrum_counter;   /* figures of one kind of operation */
typedef struct ostrum_error ostrum_error;       /* number of errors of one kind */
typedef struct ostrum_variable ostrum_variable; /* one variable that steers tracing */

/* The key fields of a counter that an aggregated query keeps; OSTRUM_BY_OPCODE means number and name. */
enum ostrum_counter_field {
    OSTRUM_BY_OPCODE = 1,
    OSTRUM_BY_OBJ_TYPE = 2,
    OSTRUM_BY_PROGRAM = 4,
    OSTRUM_BY_OPFLAGS = 8,
    OSTRUM_BY_FNAME = 16,
    OSTRUM_BY_LINENO = 32,
    OSTRUM_BY_DB_NUMBER = 64
};

/* The same of an error; another set of bits than the one above. */
enum ostrum_error_field {
    OSTRUM_ERROR_BY_DBNO = 1,
    OSTRUM_ERROR_BY_PROGRAM = 2,
    OSTRUM_ERROR_BY_OPCODE = 4,
    OSTRUM_ERROR_BY_CLASS = 8,
    OSTRUM_ERROR_BY_LOCATION = 16,
    OSTRUM_ERROR_BY_ERRNUM = 32
};

/* All counters, or all errors, in file order.
 * reset  non-zero also clears the totals in the file as they are copied; the keys stay
 * count  null allowed; receives the number of records, 0 when the result is null
 * Null when there are none and, after a diagnostic line, when memory is short: a reset may have happened
 * even then. What another process keeps locked is copied, but not cleared. */
OSTRUM_API ostrum_counter **ostrum_counters_get(rt_info *file, int32_t reset, int32_t *count);
OSTRUM_API ostrum_error **ostrum_errors_get(rt_info *file, int32_t reset, int32_t *count);

/* The same, merged: records that are equal in all kept fields become one, with the sum of their totals and
 * with the other fields 0 or empty, in order of first appearance.
 * field_mask  bits of ostrum_counter_field or ostrum_error_field; 0: the plain list */
OSTRUM_API ostrum_counter **ostrum_counters_get_aggr(rt_info *file, int32_t reset, int32_t *count,
                                                     int32_t field_mask);
OSTRUM_API ostrum_error **ostrum_errors_get_aggr(rt_info *file, int32_t reset, int32_t *count,
                                                 int32_t field_mask);

/* The variable of that name, or all for a null name. Null when there is none. */
OSTRUM_API ostrum_variable **ostrum_variables_get(rt_info *file, const char *name, int32_t *count);

/* Free a list with its records; null allowed. */
OSTRUM_API void ostrum_counters_destroy(ostrum_counter **list);
OSTRUM_API void ostrum_errors_destroy(ostrum_error **list);
OSTRUM_API void ostrum_variables_destroy(ostrum_variable **list);

/* Clear all totals in the file; keys stay. */
OSTRUM_API void ostrum_counters_reset(rt_info *file);
OSTRUM_API void ostrum_errors_reset(rt_info *file);

/* Sets a variable, making it when it is missing. Hosts notice within their status check interval.
 * name   at most 127 characters; value at most 1,023
 * Returns 0; -1, after one diagnostic line where there is a cause to tell, when it could not be set. */
OSTRUM_API int32_t ostrum_variable_set(rt_info *file, const char *name, const char *value);

/* Fields of a counter. A null record gives 0 or the empty text; texts are valid as long as the list. */
OSTRUM_API uint32_t ostrum_counter_get_opcode(const ostrum_counter *record);
OSTRUM_API int64_t ostrum_counter_get_opflags(const ostrum_counter *record);
OSTRUM_API const char *ostrum_counter_get_opname(const ostrum_counter *record);
OSTRUM_API const char *ostrum_counter_get_program(const ostrum_counter *record);
OSTRUM_API const char *ostrum_counter_get_fname(const ostrum_counter *record);  /* source file */
OSTRUM_API int64_t ostrum_counter_get_lineno(const ostrum_counter *record);     /* line in it */
OSTRUM_API const char *ostrum_counter_get_obj_type(const ostrum_counter *record);
OSTRUM_API int64_t ostrum_counter_get_recs(const ostrum_counter *record);       /* elements returned */
OSTRUM_API int64_t ostrum_counter_get_calls(const ostrum_counter *record);
OSTRUM_API int64_t ostrum_counter_get_errors(const ostrum_counter *record);
OSTRUM_API int64_t ostrum_counter_get_total_t(const ostrum_counter *record);    /* elapsed, ns */
OSTRUM_API int64_t ostrum_counter_get_u_cpu_t(const ostrum_counter *record);    /* user CPU, ns */
OSTRUM_API int64_t ostrum_counter_get_s_cpu_t(const ostrum_counter *record);    /* system CPU, ns */
OSTRUM_API int64_t ostrum_counter_get_db_number(const ostrum_counter *record);

/* The three times as text, in seconds with nine decimals: ostrum_fmt_tv(time, buf, len, 9). A null record
 * writes the empty text. Return the buffer. */
OSTRUM_API char *ostrum_counter_get_total_t_str(const ostrum_counter *record, char *buf, int32_t len);
OSTRUM_API char *ostrum_counter_get_u_cpu_t_str(const ostrum_counter *record, char *buf, int32_t len);
OSTRUM_API char *ostrum_counter_get_s_cpu_t_str(const ostrum_counter *record, char *buf, int32_t len);

/* Fields of an error. Which of them are filled depends on "ostrum_error_counter_level" of the hosts. */
OSTRUM_API int64_t ostrum_error_get_dbno(const ostrum_error *record);
OSTRUM_API int64_t ostrum_error_get_opcode(const ostrum_error *record);
OSTRUM_API const char *ostrum_error_get_opname(const ostrum_error *record);
OSTRUM_API const char *ostrum_error_get_program(const ostrum_error *record);
OSTRUM_API uint32_t ostrum_error_get_class(const ostrum_error *record);
OSTRUM_API uint32_t ostrum_error_get_location(const ostrum_error *record);
OSTRUM_API uint32_t ostrum_error_get_errnum(const ostrum_error *record);
OSTRUM_API int64_t ostrum_error_get_errcnt(const ostrum_error *record); /* how often */

OSTRUM_API const char *ostrum_variable_get_name(const ostrum_variable *record);
OSTRUM_API const char *ostrum_variable_get_value(const ostrum_variable *record);

/* ---- Process metrics --------------------------------------------------------------------------- */

/* The health figures of the hosts that use the file: CPU time adds up over all of them, the rest is what the
 * last one wrote. */
typedef struct ostrum_proc_metrics ostrum_proc_metrics;

/* Publish figures of the calling process: its CPU time since the last sample, and memory, children and
 * threads of it and its children. For a connection manager the first; for a data manager the second, with
 * eighteen figures of its own, which are stored as they are given. A sample is taken at most once per status
 * check interval, and only when "ostrum_get_process_data" has bit 0x1. Without one the first call writes
 * nothing; the second writes its figures all the same and sets memory, children and threads to 0.
 * Both work on the process's own file and, like ostrum_data_file_get, run the quiet start-up when nothing
 * has started the library yet: a host that calls them before ostrum_init() or a hook is not traced for the
 * rest of its life. One thread at a time. */
OSTRUM_API void ostrum_proc_metrics_set_cm_data(void);
OSTRUM_API void ostrum_proc_metrics_set_dm_data(uint64_t dbno, uint64_t shm_size, uint64_t shm_used,
                                                uint64_t shm_max_used, uint64_t big_size, uint64_t big_used,
                                                uint64_t big_max_used, uint64_t big_chunks, uint64_t trans_op,
                                                uint64_t trans_queued, uint64_t trans_max,
                                                uint64_t ops_done_total, uint64_t ops_error_total,
                                                uint64_t trans_done_total, uint64_t trans_error_total,
                                                uint64_t fe_connects, uint64_t fe_connects_total,
                                                uint64_t fe_connects_error_total);

/* A copy of the metrics, which the caller destroys. Null for a null handle and, after one diagnostic line,
 * when memory is short. Any thread. */
OSTRUM_API ostrum_proc_metrics *ostrum_proc_metrics_get(rt_info *file);
OSTRUM_API void ostrum_proc_metrics_destroy(ostrum_proc_metrics *record); /* null allowed */
/* Sets every figure in the file to 0 but is_dm. */
OSTRUM_API void ostrum_proc_metrics_reset(rt_info *file);

/* The figures of a copy; 0 for a null record. */
OSTRUM_API int64_t ostrum_proc_metrics_get_counter(const ostrum_proc_metrics *record);   /* updates */
OSTRUM_API int64_t ostrum_proc_metrics_get_u_cpu(const ostrum_proc_metrics *record);     /* user CPU, ns */
OSTRUM_API int64_t ostrum_proc_metrics_get_s_cpu(const ostrum_proc_metrics *record);     /* system CPU, ns */
OSTRUM_API int64_t ostrum_proc_metrics_get_rss_bytes(const ostrum_proc_metrics *record); /* resident */
OSTRUM_API int64_t ostrum_proc_metrics_get_mem_bytes(const ostrum_proc_metrics *record); /* virtual */
OSTRUM_API int64_t ostrum_proc_metrics_get_children(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_threads(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_is_dm(const ostrum_proc_metrics *record); /* 1: a data manager */
OSTRUM_API int64_t ostrum_proc_metrics_get_dbno(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_shm_size(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_shm_used(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_shm_max_used(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_big_size(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_big_used(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_big_max_used(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_big_chunks(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_trans_op(const ostrum_proc_metrics *record); /* in progress */
OSTRUM_API int64_t ostrum_proc_metrics_get_trans_queued(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_trans_max(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_ops_done_total(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_ops_error_total(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_trans_done_total(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_trans_error_total(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_fe_connects(const ostrum_proc_metrics *record); /* now open */
OSTRUM_API int64_t ostrum_proc_metrics_get_fe_connects_total(const ostrum_proc_metrics *record);
OSTRUM_API int64_t ostrum_proc_metrics_get_fe_connects_error_total(const ostrum_proc_metrics *record);

/* The two CPU times as text, like those of a counter. */
OSTRUM_API char *ostrum_proc_metrics_get_u_cpu_str(const ostrum_proc_metrics *record, char *buf, int32_t len);
OSTRUM_API char *ostrum_proc_metrics_get_s_cpu_str(const ostrum_proc_metrics *record, char *buf, int32_t len);

#ifdef __cplusplus
}
#endif
#endif
