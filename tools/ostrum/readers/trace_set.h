#ifndef OSTRUM_TOOL_READERS_TRACE_SET_H
#define OSTRUM_TOOL_READERS_TRACE_SET_H
// Any number of trace data files, read by all processors into one call tree. Memory is bounded by the
// number of distinct paths, not by the size of the files.
#include <atomic>
#include <string>
#include <vector>

#include "readers/tree_builder.h"

namespace ostrum_tool {

struct file_damages {
    std::string file;
    damage_list list;
};

struct trace_set {
    call_tree tree;
    trace_coverage coverage;
    std::vector<file_damages> damaged;   // files with damage, in the order of the input
    std::vector<std::string> unreadable; // "file: reason"
    uint64_t bytes = 0;
};

// One piece of work: a file, or the part of it that lies between two offsets.
struct trace_input {
    std::string file;
    uint64_t from = 0;
    uint64_t to = UINT64_MAX; // nothing behind it is looked at
};

// How much is done, for whoever shows it while the reading goes on.
struct read_progress {
    std::atomic<uint64_t> bytes{0};
    std::atomic<uint64_t> all_bytes{0}; // 0 = unknown
};

trace_set read_traces(const std::vector<trace_input>& inputs, const tree_options& options,
                      read_progress& progress);

// The trace data files of a directory, sorted; of a file, itself. Throws input_error.
std::vector<std::string> trace_files_of(const std::string& path, const std::string& ending = ".plog.txt");

} // namespace ostrum_tool
#endif
