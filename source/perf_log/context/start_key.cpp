#include "perf_log/context/start_key.h"

namespace ostrum {

void fill_start_key(agg_node& key, const path_identity& path, const trace_source& source, int32_t level,
                    int32_t log_time)
{
    key.opcode = path.opcode;
    key.flags = path.flags;
    key.level = level;
    key.pid = static_cast<uint32_t>(source.pid);
    key.tid = source.tid;
    key.lineno = path.lineno;
    key.db_num = path.db_num;
    key.ptr_program = path.program;
    key.ptr_opname = path.opname;
    key.ptr_fname = path.fname;
    key.ptr_obj_type = path.obj_type;
    key.hash_code = 0;
    key.count_in_buckets = 0;
    key.bucket_id = 0;
    key.log_time = log_time;
    key.single_trace = 0;
    key.main = total_record{};
    key.main.total_calls = start_marker;
    key.bucket_source = nullptr;
    key.bucket_def = nullptr;
    key.caller_ref_1 = 0;
    key.caller_ref_2 = 0;
    key.live_counter = nullptr;
    key.sub_opcode_tree = nullptr;
    key.err_info = nullptr;
}

} // namespace ostrum
