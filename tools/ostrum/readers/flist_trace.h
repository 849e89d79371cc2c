#ifndef OSTRUM_TOOL_READERS_FLIST_TRACE_H
#define OSTRUM_TOOL_READERS_FLIST_TRACE_H
// Field-list traces: calls one by one, in tree lines, in blocks, or in both, changing anywhere.
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "readers/byte_source.h"

namespace ostrum_tool {

// One start or end of a call. The texts point into the line.
struct flist_event {
    enum class kind {
        tree_start,
        tree_cached, // the call that is open at this level was served by the transaction cache
        tree_error,
        tree_end, // of an outermost call; nested ones have none
        block_in,
        block_out,
    };
    kind is = kind::tree_start;
    uint64_t offset = 0;
    int64_t time_tv = 0;     // ns since the epoch
    int64_t elapsed_tv = -1; // of a tree line since the outermost start, of an OUT since its IN; -1 = unknown
    int32_t level = 0;       // 1 for the outermost call; of a tree line exact up to 48
    std::string_view name, fname, flags, correlation;
    int64_t lineno = 0;
    int64_t error = 0; // 0 = none
    std::string_view error_text;
    bool cached = false;
    bool has_ids = false; // the line itself names process and thread
    uint32_t pid = 0;
    uint64_t tid = 0;
    int64_t seq = 0; // of blocks: number of the call in its context
};

struct flist_sink {
    std::function<void(const flist_event&)> on_event;
    std::function<void(uint64_t offset, const std::string& what)> on_damage;
    // A line of the field list that the block before it has; without text when it is too long.
    std::function<void(std::string_view line)> on_list_line = nullptr;
};

struct flist_summary {
    int64_t events = 0;
    int64_t list_lines = 0;
    uint64_t bytes = 0;
};

// Up to the end, or until so many starts and ends are read.
flist_summary read_flist_trace(byte_source& from, const flist_sink& sink, int64_t most_events = INT64_MAX);

// Whether a text looks like the begin of such a file.
bool looks_like_flist_trace(std::string_view first_line);

} // namespace ostrum_tool
#endif
