#ifndef OSTRUM_FLIST_TRACE_FLIST_WRITER_H
#define OSTRUM_FLIST_TRACE_FLIST_WRITER_H
// The records of the field-list trace: for each start and each end of an operation either a block with its
// field list, or one line of an indented tree.
#include <cstdint>

#include "flist_trace/flist_file.h"
#include "host_abi/host_services.h"

namespace ostrum {

enum class flist_direction : int32_t { in = 1, out = 2 };

// One start or end of an operation. Texts and references are the caller's.
struct flist_entry {
    flist_direction direction;
    int32_t opcode;
    const char* opname; // null or empty: the host's name of the opcode
    uint32_t opflags;
    int64_t now_tv;
    const char* file;
    int32_t line;
    const char* obj_type;
    int64_t obj_id;
    int64_t db;
    void* flist;              // input list at the start, output list at the end; null = none
    uint32_t cache_flags;     // end_flag_cache_hit
    const qel_errbuf_t* ebuf; // null = none
};

} // namespace ostrum

extern "C" {
// Appends the entry to the context's open log, in the layout that the context's mode asks for. Virtual
// operations other than -4, -5 and -6 are left out. The caller holds the context's lock.
void write_flist(ostrum::log_context* context, const ostrum::flist_entry* entry);
}
#endif
