#ifndef OSTRUM_H
#define OSTRUM_H
/* Ostrum: performance tracing of a server's numbered operations.
 *
 * The host calls a start hook and an end hook around each operation (or instrumented function). The
 * library keeps the stack of operations of each context (the process's own, or a key's), aggregates timings
 * per call path, writes them to text trace files and keeps live counters in a memory-mapped file
 * (ostrum_data.h).
 *
 * It never makes its host fail: every failure becomes one line on standard error, logging switched off,
 * or a record not written. No call here throws, aborts or ends the process, but for the handler of fatal
 * signals. All calls may be made from any thread unless they say otherwise; errno is preserved by the
 * hooks. Texts are NUL-terminated and borrowed for the call; a null text is the empty text.
 */
#include <stdint.h>
#include <sys/select.h>
#include <sys/time.h>

#include "ostrum_util.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Start-up -------------------------------------------------------------------------------- */

/* Brings the library up, once per process: reads every setting, opens the shared data file, enables
 * logging. The first hook does the same, so calling it is needed only to start at a chosen moment.
 * The mode of the first caller (full here, quiet below) sticks for the life of the process.
 * Returns 0 when initialised, also on every later call; -1 when start-up failed (the reasons are on
 * standard error) or when it is still under way in this very thread. */
OSTRUM_API int32_t ostrum_init(void);

/* The quiet form, for monitoring tools: reads the debug level and the lock method only; no logging is
 * set up, no data file opened, and hooks only return their timestamp. Results as ostrum_init(). */
OSTRUM_API int32_t ostrum_init_quiet(void);

/* Version and build information; constant texts. The build date is empty, and the compiler is a
 * placeholder (kept on purpose: the banner shows it so). */
OSTRUM_API const char *ostrum_get_version(void);
OSTRUM_API const char *ostrum_get_build_date(void);
OSTRUM_API const char *ostrum_get_build_platform(void);
OSTRUM_API const char *ostrum_get_build_compiler(void);

/* ---- Signals --------------------------------------------------------------------------------- */

/* Handler for SIGSEGV and SIGBUS, installed at start-up only where the host exports "sigsegv_handler" or
 * "sigbus_handler". Notes the signal, so that nothing is flushed at exit from a damaged process, then
 * calls the host's handler of that signal; for any other signal, or without a host handler, it ends the
 * process with exit status 1. */
OSTRUM_API void ostrum_fatal_sig_handler(int32_t signal_number);

/* Do nothing in this build, which has no signal-safe callback; kept for programs that call them. */
OSTRUM_API void ostrum_sig_safe_set_callback(void (*callback)(const char *caller));
OSTRUM_API void ostrum_sig_safe_exec_callback(const char *caller);

/* ---- Configuration --------------------------------------------------------------------------- */

/* The value of a key of the library's own section ("ostrum") of the host's configuration, or else of the
 * environment variable of the upper-cased key ("ostrum_logdir": OSTRUM_LOGDIR).
 * _str: heap copy to be given to perfconf_free(); null when the key is set nowhere or memory is short.
 * _int: signed 32-bit value; 0 when unset, or, after one diagnostic line, when it is not a number
 *       (decimal, 0x hexadecimal or 0 octal). _bool: 1 for "yes", "y" (any case) and "1", else 0. */
OSTRUM_API char *perfconf_str(const char *key);
OSTRUM_API int32_t perfconf_int(const char *key);
OSTRUM_API int32_t perfconf_bool(const char *key);
/* Frees the text and sets the pointer to null; null allowed, twice. */
OSTRUM_API void perfconf_free(char **text);

/* ---- Contexts by key ------------------------------------------------------------------------- */

/* The tracing context named by (process id, key), made on first use: for work that moves between
 * threads, or for several independent stacks on one thread. key 0 and up; -1 is the context that all
 * threads of that process share which use the hooks without a key: at the same time they would spoil each
 * other's stack, so a host of several threads gives each a key. Full start-up runs first if nothing has.
 * Returns a reference that stays the library's; null for a key below -1 (one diagnostic line), while
 * logging is disabled, when memory is short, inside a hook of the calling thread (a host service or a
 * signal handler that asks), and once the process has begun to exit. */
OSTRUM_API void *ostrum_get_liptr_by_key(int32_t pid, int32_t key);

/* Flushes what the context has gathered, closes its files and forgets it; one diagnostic line when
 * there is none. key -1 stands for the calling thread's own context. */
OSTRUM_API void ostrum_release_liptr_by_key(int32_t pid, int32_t key);

/* ---- Operation hooks ------------------------------------------------------------------------- */

/* Every hook reads the clock once and returns that timestamp (nanoseconds since the epoch), also while
 * logging is disabled, inside another hook of the same thread, and after exit has begun.
 * Starts and ends must be paired per context; up to 100 levels are recorded, deeper ones are counted.
 *
 * pid, key    the context, see above; pid is the calling process's
 * opcode      number of the operation; 0 or below: the operation is known by its name
 * opname, name  its name as the host knows it
 * program     name of the program that the call counts for; of an operation it is found out
 * opflags     the host's flags of the call
 * in_flist, out_flist  field lists of the host, or null; in_flist must live until the end hook
 * end_flags   bit 0x4: served by the transaction cache
 * file, line  source location of the call
 * obj_type, obj_id, db  type, number and database of the object worked on
 * ebuf        the host's error buffer of the call: first three 32-bit words location, class, number;
 *             number 0 = no error. An outermost end without one is reported.
 * error       non-zero: the function failed; errnum, err_class and location are then its error's number,
 *             class and location */
OSTRUM_API int64_t ostrum_log_start_op(uint32_t opcode, const char *opname, uint32_t opflags, void *in_flist,
                                       const char *file, int32_t line, const char *obj_type, int64_t obj_id,
                                       int64_t db, void *ebuf);
OSTRUM_API int64_t ostrum_log_end_op(uint32_t opcode, const char *opname, uint32_t opflags, void *in_flist,
                                     void *out_flist, uint32_t end_flags, const char *file, int32_t line,
                                     const char *obj_type, int64_t obj_id, int64_t db, void *ebuf);
OSTRUM_API int64_t ostrum_log_start_fn(uint32_t opcode, const char *name, uint32_t opflags,
                                       const char *program, const char *file, int32_t line,
                                       const char *obj_type, int64_t db);
OSTRUM_API int64_t ostrum_log_end_fn(uint32_t opcode, const char *name, uint32_t opflags, int32_t error,
                                     const char *program, const char *file, int32_t line,
                                     const char *obj_type, int64_t db, int32_t errnum, int32_t err_class,
                                     int32_t location);
/* Ends the innermost open operation when its details are no longer at hand: they are taken from the
 * start. With no operation open it ends operation 0. */
OSTRUM_API int64_t ostrum_log_end_default(int32_t error, int32_t errnum, int32_t err_class, int32_t location);

/* The same in the context of (pid, key); with an invalid key, in the calling thread's own. */
OSTRUM_API int64_t ostrum_log_start_op_key(int32_t pid, int32_t key, uint32_t opcode, const char *opname,
                                           uint32_t opflags, void *in_flist, const char *file, int32_t line,
                                           const char *obj_type, int64_t obj_id, int64_t db, void *ebuf);
OSTRUM_API int64_t ostrum_log_end_op_key(int32_t pid, int32_t key, uint32_t opcode, const char *opname,
                                         uint32_t opflags, void *in_flist, void *out_flist,
                                         uint32_t end_flags, const char *file, int32_t line,
                                         const char *obj_type, int64_t obj_id, int64_t db, void *ebuf);
OSTRUM_API int64_t ostrum_log_start_fn_key(int32_t pid, int32_t key, uint32_t opcode, const char *name,
                                           uint32_t opflags, const char *program, const char *file,
                                           int32_t line, const char *obj_type, int64_t db);
OSTRUM_API int64_t ostrum_log_end_fn_key(int32_t pid, int32_t key, uint32_t opcode, const char *name,
                                         uint32_t opflags, int32_t error, const char *program,
                                         const char *file, int32_t line, const char *obj_type, int64_t db,
                                         int32_t errnum, int32_t err_class, int32_t location);
OSTRUM_API int64_t ostrum_log_end_default_key(int32_t pid, int32_t key, int32_t error, int32_t errnum,
                                              int32_t err_class, int32_t location);

/* Name of an operation: a fixed name for the virtual operations -1, -2, -4, -5 and -6, else the host's,
 * else the fallback when it is not empty, else "unknown_operation". Never null; borrowed. */
OSTRUM_API const char *ostrum_get_opname(int32_t opcode, const char *fallback);

/* The object that an operation's field list is about: returns its id (0 without one), stores its
 * database number in *db (null allowed) and a description of at most text_len - 1 characters in text. */
OSTRUM_API int64_t ostrum_get_object_xoid(int32_t opcode, void *flist, int64_t *db, char *text,
                                          int32_t text_len);

/* ---- Idle wait and periods ------------------------------------------------------------------- */

/* select() for the host's idle wait: at most once a second it also flushes what is due and closes
 * aggregation periods: of the context that the calling thread uses without a key or, on a thread that has
 * used none, of all keyed ones of the process. Arguments and result are select()'s, but it never returns -1
 * with EINTR: with a timeout it goes on with the time left. Without a timeout, and with automatic flushing
 * on, it wakes up every second inside and returns only when a descriptor is ready or on a real error. */
OSTRUM_API int ostrum_select(int n, fd_set *read_set, fd_set *write_set, fd_set *except_set,
                             struct timeval *timeout);

/* Time left in the context's aggregation period, generously rounded up: whole seconds left plus one, and
 * 1,000,000 microseconds less those of the clock (not normalised; kept: callers expect it). Zero when the
 * period is over. Returns `left`; null when an argument is null or the clock cannot be read. */
OSTRUM_API struct timeval *ostrum_get_time_to_period_end(void *context, struct timeval *left);

/* ---- Tree dump ------------------------------------------------------------------------------- */

/* Appends the records of an aggregation tree, framed by a period record from `start` to `end`
 * (nanoseconds since the epoch), to the file `path`, or to standard output for "-". The tree stays as it
 * is. pid and tid 0 stand for the caller's; program may be null. Returns the number of top-level
 * records, or -1 after one diagnostic line. The tree must not be in use meanwhile. */
OSTRUM_API int32_t perf_flush_aggregation_tree(const char *path, bt_tree *tree, int32_t pid, uint64_t tid,
                                               int64_t start, int64_t end, const char *program);

/* ---- Finished files ---------------------------------------------------------------------------- */

/* Rename a trace file, or an alarm file, that is to be collected, while no process writes to a shared one.
 * file  the data file whose lock they take (ostrum_data_file_get() or an opened one); null: no lock
 * Return 0; also when a name is empty, the source is missing or something has the target's name, which is
 * reported and nothing is renamed; -1 when the renaming itself failed. Any thread. */
struct rt_info;
OSTRUM_API int32_t ostrum_rename_trace_file(struct rt_info *file, const char *source, const char *target);
OSTRUM_API int32_t ostrum_rename_alarm_file(struct rt_info *file, const char *source, const char *target);

#ifdef __cplusplus
}
#endif
#endif
