#include "perf_log/operation/hooks.h"

#include <cerrno>

#include "config/program_name.h"
#include "data_file/variables.h"
#include "host_access/record_count.h"
#include "os/no_cancellation.h"
#include "os/os_calls.h"
#include "perf_log/operation/op_event.h"
#include "perf_log/operation/write_log.h"
#include "process_state/process_state.h"
#include "util/guarded_write.h"

using namespace ostrum;

namespace {

constexpr int32_t error_log_level = 1;
constexpr int32_t error_log_line = 4785; // kept: the host's log readers know the entry by it
constexpr const char* error_log_file = "source/perf_log/operation/hooks.cpp";

// What every hook does around its own work: the clock first, nothing when the thread is inside the
// library already, the context held meanwhile, errno as it was.
class hook_call {
public:
    explicit hook_call(const context_name* name)
        : error_(errno), saved_errno_(error_), now_tv_(os::realtime_ns()),
          held_(scope_.entered() ? enter_context(name) : held_context{})
    {}
    ~hook_call()
    {
        if (held_.context != nullptr) {
            leave_context(held_);
        }
        error_ = saved_errno_;
    }
    hook_call(const hook_call&) = delete;
    hook_call& operator=(const hook_call&) = delete;

    [[nodiscard]] int64_t now_tv() const { return now_tv_; }
    [[nodiscard]] log_context* context() const { return held_.context; } // null: nothing to do

private:
    int& error_;
    const int saved_errno_;
    const int64_t now_tv_;
    const library_scope scope_;
    const held_context held_;
};

qel_errbuf_t error_buffer(int32_t errnum, int32_t err_class, int32_t location)
{
    qel_errbuf_t ebuf{};
    ebuf.location = static_cast<uint32_t>(location);
    ebuf.err_class = static_cast<uint32_t>(err_class);
    ebuf.errnum = static_cast<uint32_t>(errnum);
    return ebuf;
}

void report_missing_error_buffer()
{
    constexpr char text[] = "\n*** Error buffer not initialized ***\n";
    write_all_guarded(2, text, sizeof(text) - 1);
}

// An outermost end without an error buffer counts as a failure here (kept on purpose).
void report_failed_operation(const qel_errbuf_t* ebuf, void* in_flist)
{
    if (ebuf == nullptr) {
        report_missing_error_buffer();
    } else if (ebuf->errnum == 0) {
        return;
    }
    if (perf_data_file_var_get_int(__ostrum_get_data_file_handle(), nullptr, "log_error_flist") != 0 &&
        qel_log_flist != nullptr) {
        const os::no_cancellation guard;
        qel_log_flist(static_cast<qel_flist_t*>(in_flist), error_log_level,
                      "opcode failure : ", error_log_file, error_log_line);
    }
}

// The details that the start of the innermost open operation left in its node; operation 0 without them.
op_event end_of_innermost(const log_context& context)
{
    op_event event{};
    const agg_node* node =
        context.depth >= 0 && context.depth < max_call_frames ? context.frames[context.depth].node : nullptr;
    if (node != nullptr) {
        event.opcode = node->opcode;
        event.opname = node->opname;
        event.opflags = static_cast<uint32_t>(node->flags);
        event.program = node->program;
        event.file = node->fname;
        event.line = node->lineno;
        event.obj_type = node->obj_type;
        event.db = node->db_num;
    }
    return event;
}

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

op_event call_of(const call_details& call, const hook_call& hook)
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

// The common end of a function: its error buffer lives for this call only.
void end_function(log_context& context, op_event& event, int32_t error, const qel_errbuf_t& ebuf)
{
    event.end_flags = error != 0 ? end_flag_error : 0;
    event.record_count = 1;
    event.ebuf = &ebuf;
    log_operation_end(context, event);
}

} // namespace

int64_t __ostrum_log_start_op(const context_name* name, uint32_t opcode, const char* opname, uint32_t opflags,
                              void* in_flist, const char* file, int32_t line, const char* obj_type,
                              int64_t obj_id, int64_t db, void* ebuf)
{
    const hook_call hook(name);
    if (log_context* context = hook.context()) {
        ++context->open_hook_calls;
        if (context->depth < 0) {
            get_program(context->trace.program, sizeof(context->trace.program));
        }
        if (!pass_start(*context)) {
            op_event event = call_of(
                {opcode, opname, opflags, context->trace.program, file, line, obj_type, obj_id, db}, hook);
            event.in_flist = in_flist;
            event.ebuf = static_cast<const qel_errbuf_t*>(ebuf);
            log_operation_start(*context, event);
        }
    }
    return hook.now_tv();
}

int64_t __ostrum_log_end_op(const context_name* name, uint32_t opcode, const char* opname, uint32_t opflags,
                            void* in_flist, void* out_flist, uint32_t end_flags, const char* file,
                            int32_t line, const char* obj_type, int64_t obj_id, int64_t db, void* ebuf)
{
    const hook_call hook(name);
    if (log_context* context = hook.context()) {
        if (!pass_end(*context)) {
            op_event event = call_of(
                {opcode, opname, opflags, context->trace.program, file, line, obj_type, obj_id, db}, hook);
            event.in_flist = in_flist;
            event.out_flist = out_flist;
            event.end_flags = end_flags;
            event.ebuf = static_cast<const qel_errbuf_t*>(ebuf);
            event.record_count = count_flist(event.opcode, static_cast<qel_flist_t*>(out_flist), event.ebuf);
            log_operation_end(*context, event);
            if (context->depth < 0) {
                report_failed_operation(event.ebuf, in_flist);
            }
        }
        --context->open_hook_calls;
    }
    return hook.now_tv();
}

int64_t __ostrum_log_start_fn(const context_name* name, uint32_t opcode, const char* fn_name,
                              uint32_t opflags, const char* program, const char* file, int32_t line,
                              const char* obj_type, int64_t obj_id, int64_t db)
{
    const hook_call hook(name);
    if (log_context* context = hook.context()) {
        ++context->open_hook_calls;
        if (!pass_start(*context)) {
            log_operation_start(
                *context,
                call_of({opcode, fn_name, opflags, program, file, line, obj_type, obj_id, db}, hook));
        }
    }
    return hook.now_tv();
}

int64_t __ostrum_log_end_fn(const context_name* name, uint32_t opcode, const char* fn_name, uint32_t opflags,
                            int32_t error, const char* program, const char* file, int32_t line,
                            const char* obj_type, int64_t obj_id, int64_t db, int32_t errnum,
                            int32_t err_class, int32_t location)
{
    const hook_call hook(name);
    if (log_context* context = hook.context()) {
        if (!pass_end(*context)) {
            op_event event =
                call_of({opcode, fn_name, opflags, program, file, line, obj_type, obj_id, db}, hook);
            end_function(*context, event, error, error_buffer(errnum, err_class, location));
        }
        --context->open_hook_calls;
    }
    return hook.now_tv();
}

int64_t __ostrum_log_end_default(const context_name* name, int32_t error, int32_t errnum, int32_t err_class,
                                 int32_t location)
{
    const hook_call hook(name);
    if (log_context* context = hook.context()) {
        op_event event = end_of_innermost(*context);
        event.now_tv = hook.now_tv();
        end_function(*context, event, error, error_buffer(errnum, err_class, location));
        --context->open_hook_calls;
    }
    return hook.now_tv();
}
