#ifndef OSTRUM_PERF_LOG_OPERATION_HOOKS_H
#define OSTRUM_PERF_LOG_OPERATION_HOOKS_H
// The hooks behind the exported ones, which take them in whole: one more call with a dozen arguments would
// cost as much as half of what a hook does. Each takes its timestamp first and returns it; `name` is the
// context of a _key form, or null.
#include <cstdint>

#include "config/program_name.h"
#include "host_access/record_count.h"
#include "perf_log/operation/hook_call.h"
#include "perf_log/operation/op_event.h"
#include "perf_log/operation/operation_end.h"
#include "perf_log/operation/operation_start.h"

namespace ostrum {

// What every hook says of the call.
struct call_details {
    uint32_t opcode;
    const char* name;
    uint32_t opflags;
    const char* program;
    const char* file;
    int32_t line;
    const char* obj_type;
    int64_t obj_id;
    int64_t db;
};

inline op_event call_of(const call_details& call, const hook_call& hook)
{
    return {.now_tv = hook.now_tv(),
            .opcode = static_cast<int32_t>(call.opcode),
            .opname = call.name,
            .opflags = call.opflags,
            .program = call.program,
            .file = call.file,
            .line = call.line,
            .obj_type = call.obj_type,
            .obj_id = call.obj_id,
            .db = call.db,
            .in_flist = nullptr,
            .out_flist = nullptr,
            .end_flags = 0,
            .record_count = 0,
            .ebuf = nullptr};
}

inline qel_errbuf_t error_buffer(int32_t errnum, int32_t err_class, int32_t location)
{
    qel_errbuf_t ebuf{};
    ebuf.location = static_cast<uint32_t>(location);
    ebuf.err_class = static_cast<uint32_t>(err_class);
    ebuf.errnum = static_cast<uint32_t>(errnum);
    return ebuf;
}

// The common end of a function: its error buffer lives for this call only. Kept on purpose: its error travels
// in the bit of the cache hits, and is counted as one.
[[gnu::always_inline]] inline void end_function(log_context& context, op_event& event, int32_t error,
                                                const qel_errbuf_t& ebuf)
{
    event.end_flags = error != 0 ? end_flag_cache_hit : 0;
    event.record_count = 1;
    event.ebuf = &ebuf;
    log_operation_end(context, event);
}

// The details that the start of the innermost open operation left in its node; operation 0 without them.
op_event end_of_innermost(const log_context& context);

// At an outermost end that failed, the input list goes to the host's log where the operator wants it. An end
// without an error buffer counts as a failure here (kept on purpose).
void report_failed_operation(const qel_errbuf_t* ebuf, void* in_flist);

} // namespace ostrum

extern "C" {

[[gnu::always_inline]] inline int64_t __ostrum_log_start_op(const ostrum::context_name* name, uint32_t opcode,
                                                            const char* opname, uint32_t opflags,
                                                            void* in_flist, const char* file, int32_t line,
                                                            const char* obj_type, int64_t obj_id, int64_t db,
                                                            void* ebuf)
{
    const ostrum::hook_call hook(name);
    if (ostrum::log_context* context = hook.context()) {
        if (context->depth < 0) { // nothing has changed yet, should the thread be cancelled in the host
            ostrum::refresh_program(context->trace.program, sizeof(context->trace.program),
                                    context->correlation);
        }
        ++context->open_hook_calls;
        if (!ostrum::pass_start(*context)) {
            ostrum::op_event event = ostrum::call_of(
                {opcode, opname, opflags, context->trace.program, file, line, obj_type, obj_id, db}, hook);
            event.in_flist = in_flist;
            event.ebuf = static_cast<const qel_errbuf_t*>(ebuf);
            ostrum::log_operation_start(*context, event);
        }
    }
    return hook.now_tv();
}

[[gnu::always_inline]] inline int64_t
__ostrum_log_end_op(const ostrum::context_name* name, uint32_t opcode, const char* opname, uint32_t opflags,
                    void* in_flist, void* out_flist, uint32_t end_flags, const char* file, int32_t line,
                    const char* obj_type, int64_t obj_id, int64_t db, void* ebuf)
{
    const ostrum::hook_call hook(name);
    if (ostrum::log_context* context = hook.context()) {
        if (!ostrum::pass_end(*context)) {
            ostrum::op_event event = ostrum::call_of(
                {opcode, opname, opflags, context->trace.program, file, line, obj_type, obj_id, db}, hook);
            event.in_flist = in_flist;
            event.out_flist = out_flist;
            event.end_flags = end_flags;
            event.ebuf = static_cast<const qel_errbuf_t*>(ebuf);
            event.record_count = count_flist(event.opcode, static_cast<qel_flist_t*>(out_flist), event.ebuf);
            ostrum::log_operation_end(*context, event);
            if (context->depth < 0) {
                ostrum::report_failed_operation(event.ebuf, in_flist);
            }
        }
        --context->open_hook_calls;
    }
    return hook.now_tv();
}

[[gnu::always_inline]] inline int64_t __ostrum_log_start_fn(const ostrum::context_name* name, uint32_t opcode,
                                                            const char* fn_name, uint32_t opflags,
                                                            const char* program, const char* file,
                                                            int32_t line, const char* obj_type,
                                                            int64_t obj_id, int64_t db)
{
    const ostrum::hook_call hook(name);
    if (ostrum::log_context* context = hook.context()) {
        ++context->open_hook_calls;
        if (!ostrum::pass_start(*context)) {
            ostrum::log_operation_start(
                *context,
                ostrum::call_of({opcode, fn_name, opflags, program, file, line, obj_type, obj_id, db}, hook));
        }
    }
    return hook.now_tv();
}

[[gnu::always_inline]] inline int64_t
__ostrum_log_end_fn(const ostrum::context_name* name, uint32_t opcode, const char* fn_name, uint32_t opflags,
                    int32_t error, const char* program, const char* file, int32_t line, const char* obj_type,
                    int64_t obj_id, int64_t db, int32_t errnum, int32_t err_class, int32_t location)
{
    const ostrum::hook_call hook(name);
    if (ostrum::log_context* context = hook.context()) {
        if (!ostrum::pass_end(*context)) {
            ostrum::op_event event =
                ostrum::call_of({opcode, fn_name, opflags, program, file, line, obj_type, obj_id, db}, hook);
            ostrum::end_function(*context, event, error, ostrum::error_buffer(errnum, err_class, location));
        }
        --context->open_hook_calls;
    }
    return hook.now_tv();
}

[[gnu::always_inline]] inline int64_t __ostrum_log_end_default(const ostrum::context_name* name,
                                                               int32_t error, int32_t errnum,
                                                               int32_t err_class, int32_t location)
{
    const ostrum::hook_call hook(name);
    if (ostrum::log_context* context = hook.context()) {
        ostrum::op_event event = ostrum::end_of_innermost(*context);
        event.now_tv = hook.now_tv();
        ostrum::end_function(*context, event, error, ostrum::error_buffer(errnum, err_class, location));
        --context->open_hook_calls;
    }
    return hook.now_tv();
}

} // extern "C"
#endif
