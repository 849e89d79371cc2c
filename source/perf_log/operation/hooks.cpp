#include "perf_log/operation/hooks.h"

#include "data_file/variables.h"
#include "os/no_cancellation.h"
#include "util/guarded_write.h"

namespace ostrum {

namespace {

constexpr int32_t error_log_level = 1;
constexpr int32_t error_log_line = 4785; // kept on purpose: the entry carries it
constexpr const char* error_log_file = "source/perf_log/operation/hooks.cpp";

void report_missing_error_buffer()
{
    constexpr char text[] = "\n*** Error buffer not initialized ***\n";
    write_all_guarded(2, text, sizeof(text) - 1);
}

} // namespace

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

} // namespace ostrum
