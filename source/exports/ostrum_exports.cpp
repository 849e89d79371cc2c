// The exported entries of ostrum.h: each forwards to the internal one. Those of ostrum_util.h and
// perf_flush_aggregation_tree are exported where they are defined.
#include "ostrum.h"

#include "config/lookup.h"
#include "host_access/object_xoid.h"
#include "host_access/opcode_names.h"
#include "perf_log/flush/idle_select.h"
#include "perf_log/flush/timed_flush.h"
#include "perf_log/operation/context_lookup.h"
#include "perf_log/operation/hooks.h"
#include "perf_log/output/file_rename.h"
#include "process_state/signals.h"
#include "startup/build_info.h"
#include "startup/initialise.h"

using ostrum::context_name;

// ---- Start-up ----

int32_t ostrum_init(void)
{
    return __ostrum_init(0);
}

int32_t ostrum_init_quiet(void)
{
    return __ostrum_init(1);
}

const char* ostrum_get_version(void)
{
    return __ostrum_get_version();
}

const char* ostrum_get_build_date(void)
{
    return __ostrum_get_build_date();
}

const char* ostrum_get_build_platform(void)
{
    return __ostrum_get_build_platform();
}

const char* ostrum_get_build_compiler(void)
{
    return __ostrum_get_build_compiler();
}

// ---- Signals ----

void ostrum_fatal_sig_handler(int32_t signal_number)
{
    __ostrum_fatal_sig_handler(signal_number);
}

void ostrum_sig_safe_set_callback(void (*callback)(const char* caller))
{
    __ostrum_sig_safe_set_callback(callback);
}

void ostrum_sig_safe_exec_callback(const char* caller)
{
    __ostrum_sig_safe_exec_callback(caller);
}

// ---- Configuration ----

char* perfconf_str(const char* key)
{
    return __perfconf_str(key);
}

int32_t perfconf_int(const char* key)
{
    return __perfconf_int(key);
}

int32_t perfconf_bool(const char* key)
{
    return __perfconf_bool(key);
}

void perfconf_free(char** text)
{
    __perfconf_free(text);
}

// ---- Contexts by key ----

void* ostrum_get_liptr_by_key(int32_t pid, int32_t key)
{
    return __ostrum_get_liptr_by_key(pid, key);
}

void ostrum_release_liptr_by_key(int32_t pid, int32_t key)
{
    __ostrum_release_liptr_by_key(pid, key);
}

// ---- Operation hooks ----

int64_t ostrum_log_start_op(uint32_t opcode, const char* opname, uint32_t opflags, void* in_flist,
                            const char* file, int32_t line, const char* obj_type, int64_t obj_id, int64_t db,
                            void* ebuf)
{
    return __ostrum_log_start_op(nullptr, opcode, opname, opflags, in_flist, file, line, obj_type, obj_id, db,
                                 ebuf);
}

int64_t ostrum_log_start_op_key(int32_t pid, int32_t key, uint32_t opcode, const char* opname,
                                uint32_t opflags, void* in_flist, const char* file, int32_t line,
                                const char* obj_type, int64_t obj_id, int64_t db, void* ebuf)
{
    const context_name name{pid, key};
    return __ostrum_log_start_op(&name, opcode, opname, opflags, in_flist, file, line, obj_type, obj_id, db,
                                 ebuf);
}

int64_t ostrum_log_end_op(uint32_t opcode, const char* opname, uint32_t opflags, void* in_flist,
                          void* out_flist, uint32_t end_flags, const char* file, int32_t line,
                          const char* obj_type, int64_t obj_id, int64_t db, void* ebuf)
{
    return __ostrum_log_end_op(nullptr, opcode, opname, opflags, in_flist, out_flist, end_flags, file, line,
                               obj_type, obj_id, db, ebuf);
}

int64_t ostrum_log_end_op_key(int32_t pid, int32_t key, uint32_t opcode, const char* opname, uint32_t opflags,
                              void* in_flist, void* out_flist, uint32_t end_flags, const char* file,
                              int32_t line, const char* obj_type, int64_t obj_id, int64_t db, void* ebuf)
{
    const context_name name{pid, key};
    return __ostrum_log_end_op(&name, opcode, opname, opflags, in_flist, out_flist, end_flags, file, line,
                               obj_type, obj_id, db, ebuf);
}

int64_t ostrum_log_start_fn(uint32_t opcode, const char* fn_name, uint32_t opflags, const char* program,
                            const char* file, int32_t line, const char* obj_type, int64_t db)
{
    return __ostrum_log_start_fn(nullptr, opcode, fn_name, opflags, program, file, line, obj_type, 0, db);
}

int64_t ostrum_log_start_fn_key(int32_t pid, int32_t key, uint32_t opcode, const char* fn_name,
                                uint32_t opflags, const char* program, const char* file, int32_t line,
                                const char* obj_type, int64_t db)
{
    const context_name name{pid, key};
    return __ostrum_log_start_fn(&name, opcode, fn_name, opflags, program, file, line, obj_type, 0, db);
}

int64_t ostrum_log_end_fn(uint32_t opcode, const char* fn_name, uint32_t opflags, int32_t error,
                          const char* program, const char* file, int32_t line, const char* obj_type,
                          int64_t db, int32_t errnum, int32_t err_class, int32_t location)
{
    return __ostrum_log_end_fn(nullptr, opcode, fn_name, opflags, error, program, file, line, obj_type, 0, db,
                               errnum, err_class, location);
}

int64_t ostrum_log_end_fn_key(int32_t pid, int32_t key, uint32_t opcode, const char* fn_name,
                              uint32_t opflags, int32_t error, const char* program, const char* file,
                              int32_t line, const char* obj_type, int64_t db, int32_t errnum,
                              int32_t err_class, int32_t location)
{
    const context_name name{pid, key};
    return __ostrum_log_end_fn(&name, opcode, fn_name, opflags, error, program, file, line, obj_type, 0, db,
                               errnum, err_class, location);
}

int64_t ostrum_log_end_default(int32_t error, int32_t errnum, int32_t err_class, int32_t location)
{
    return __ostrum_log_end_default(nullptr, error, errnum, err_class, location);
}

int64_t ostrum_log_end_default_key(int32_t pid, int32_t key, int32_t error, int32_t errnum, int32_t err_class,
                                   int32_t location)
{
    const context_name name{pid, key};
    return __ostrum_log_end_default(&name, error, errnum, err_class, location);
}

const char* ostrum_get_opname(int32_t opcode, const char* fallback)
{
    return get_opname(opcode, fallback);
}

int64_t ostrum_get_object_xoid(int32_t opcode, void* flist, int64_t* db, char* text, int32_t text_len)
{
    return __ostrum_get_object_xoid(opcode, static_cast<qel_flist_t*>(flist), db, text, text_len);
}

// ---- Idle wait and periods ----

int ostrum_select(int n, fd_set* read_set, fd_set* write_set, fd_set* except_set, struct timeval* timeout)
{
    return __ostrum_select(n, read_set, write_set, except_set, timeout);
}

struct timeval* ostrum_get_time_to_period_end(void* context, struct timeval* left)
{
    return __ostrum_get_time_to_period_end(context, left);
}

int32_t ostrum_rename_trace_file(rt_info* file, const char* source, const char* target)
{
    return __rename_trace_file(file, source, target);
}

int32_t ostrum_rename_alarm_file(rt_info* file, const char* source, const char* target)
{
    return __rename_alarm_file(file, source, target);
}
