#ifndef OSTRUM_PERF_LOG_OPERATION_OP_EVENT_H
#define OSTRUM_PERF_LOG_OPERATION_OP_EVENT_H
#include <cstdint>

#include "host_abi/host_services.h"

namespace ostrum {

enum class op_phase : int32_t { start = 1, end = 2 };

// One hook call, as the per-operation logging sees it. Texts and references are the caller's.
struct op_event {
    op_phase phase = op_phase::start; // read by write_log() only
    int64_t now_tv;
    int32_t opcode;
    const char* opname;
    uint32_t opflags;
    const char* program;
    const char* file;
    int32_t line;
    const char* obj_type;
    int64_t obj_id;
    int64_t db;
    void* in_flist;
    void* out_flist;
    uint32_t end_flags;       // end_flag_cache_hit; others mean nothing here
    int64_t record_count;     // elements that the ended operation returned
    const qel_errbuf_t* ebuf; // null = none
};

// A copy that does not make the compiler keep the original in memory, as copying the whole would.
[[gnu::always_inline]] inline op_event member_by_member(const op_event& event)
{
    return {.phase = event.phase,
            .now_tv = event.now_tv,
            .opcode = event.opcode,
            .opname = event.opname,
            .opflags = event.opflags,
            .program = event.program,
            .file = event.file,
            .line = event.line,
            .obj_type = event.obj_type,
            .obj_id = event.obj_id,
            .db = event.db,
            .in_flist = event.in_flist,
            .out_flist = event.out_flist,
            .end_flags = event.end_flags,
            .record_count = event.record_count,
            .ebuf = event.ebuf};
}

} // namespace ostrum
#endif
