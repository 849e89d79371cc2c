#ifndef OSTRUM_TOOL_READERS_TRACE_FILE_H
#define OSTRUM_TOOL_READERS_TRACE_FILE_H
// Reads trace data files ("*.plog.txt") into one call tree. A start record opens a path, a figures record
// closes the most recent open one. Damage (cut or foreign lines, bad numbers, missing records) is
// reported with file and line, and reading goes on with what can still be told apart.
#include <istream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "readers/call_tree.h"

namespace ostrum_tool {

// What the period frames of the input tell.
struct trace_coverage {
    int64_t files = 0;
    int64_t flushes = 0;                             // period frames
    int64_t operations = 0;                          // figures records of paths
    std::set<uint32_t> processes;                    // pids
    std::set<std::pair<uint32_t, uint64_t>> threads; // (pid, tid)
    int64_t from_tv = 0;                             // ns since the epoch; 0 = unknown
    int64_t to_tv = 0;
};

struct trace_problems {
    std::vector<std::string> texts; // "file:line: what"; the first few of each file
    int64_t count = 0;              // of all
};

class trace_reader {
public:
    // brief: paths that differ only in flags, program, source, object type or database become one.
    explicit trace_reader(bool brief) : brief_(brief) {}

    void read(std::istream& input, const std::string& name);

    [[nodiscard]] const call_tree& tree() const { return tree_; }
    [[nodiscard]] const trace_coverage& coverage() const { return coverage_; }
    [[nodiscard]] const trace_problems& problems() const { return problems_; }

private:
    enum class record_role { frame, path, bucket };
    struct open_record {
        record_role role;
        int32_t level;
        node_index node; // of the path itself, or of the path that the bucket belongs to
    };

    void read_line(std::string_view line);
    void open(const start_record& record);
    void open_unreadable();
    void close(const figures& record);
    void close_unreadable();
    void drop_from_level(int32_t level);
    void fill_up_to_level(int32_t level);
    void push_path(int32_t level, const path_key& key);
    void note_frame(const start_record& record);
    void report(const std::string& problem);

    [[nodiscard]] int32_t top_level() const { return stack_.empty() ? -1 : stack_.back().level; }
    [[nodiscard]] node_index top_node() const
    {
        return stack_.empty() ? call_tree::root : stack_.back().node;
    }

    bool brief_;
    call_tree tree_;
    trace_coverage coverage_;
    trace_problems problems_;
    std::vector<open_record> stack_;
    std::string file_name_; // of the file being read
    int64_t line_ = 0;
    int64_t file_problems_ = 0;
};

// The trace data files of a directory, sorted; of a file, itself. Throws input_error.
std::vector<std::string> trace_files_of(const std::string& path);

} // namespace ostrum_tool
#endif
