#ifndef OSTRUM_PERF_LOG_OPERATION_HOOKS_H
#define OSTRUM_PERF_LOG_OPERATION_HOOKS_H
// The hooks behind the exported ones. Each takes its timestamp first and returns it; `name` is the context
// of a _key form, or null.
#include <cstdint>

#include "perf_log/operation/context_lookup.h"

extern "C" {
int64_t __ostrum_log_start_op(const ostrum::context_name* name, uint32_t opcode, const char* opname,
                              uint32_t opflags, void* in_flist, const char* file, int32_t line,
                              const char* obj_type, int64_t obj_id, int64_t db, void* ebuf);
int64_t __ostrum_log_end_op(const ostrum::context_name* name, uint32_t opcode, const char* opname,
                            uint32_t opflags, void* in_flist, void* out_flist, uint32_t end_flags,
                            const char* file, int32_t line, const char* obj_type, int64_t obj_id, int64_t db,
                            void* ebuf);
int64_t __ostrum_log_start_fn(const ostrum::context_name* name, uint32_t opcode, const char* fn_name,
                              uint32_t opflags, const char* program, const char* file, int32_t line,
                              const char* obj_type, int64_t obj_id, int64_t db);
int64_t __ostrum_log_end_fn(const ostrum::context_name* name, uint32_t opcode, const char* fn_name,
                            uint32_t opflags, int32_t error, const char* program, const char* file,
                            int32_t line, const char* obj_type, int64_t obj_id, int64_t db, int32_t errnum,
                            int32_t err_class, int32_t location);
int64_t __ostrum_log_end_default(const ostrum::context_name* name, int32_t error, int32_t errnum,
                                 int32_t err_class, int32_t location);
}
#endif
