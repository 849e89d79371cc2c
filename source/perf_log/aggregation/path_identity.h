#ifndef OSTRUM_PERF_LOG_AGGREGATION_PATH_IDENTITY_H
#define OSTRUM_PERF_LOG_AGGREGATION_PATH_IDENTITY_H
#include <cstdint>
#include <cstring>

#include "perf_log/aggregation/agg_node.h"

namespace ostrum {

// What tells the call paths of one caller apart. The texts are the caller's, none is null.
struct path_identity {
    int32_t opcode;
    int32_t flags;
    int32_t lineno;
    int64_t db_num;
    const char* program;
    const char* opname;
    const char* fname;
    const char* obj_type;
};

inline path_identity stored_path(const agg_node& node)
{
    return {node.opcode,  node.flags,  node.lineno, node.db_num,
            node.program, node.opname, node.fname,  node.obj_type};
}

// Whether the path is that of a stored node: what the ordering would find equal, without the hash. A text
// that the node holds cut is never equal. The texts are compared themselves, as callers use buffers again.
[[gnu::always_inline]] inline bool is_same_path(const path_identity& path, const agg_node& node)
{
    return path.opcode == node.opcode && path.lineno == node.lineno && path.flags == node.flags &&
           path.db_num == node.db_num && strcmp(path.opname, node.opname) == 0 &&
           strcmp(path.program, node.program) == 0 && strcmp(path.fname, node.fname) == 0 &&
           strcmp(path.obj_type, node.obj_type) == 0;
}

} // namespace ostrum
#endif
