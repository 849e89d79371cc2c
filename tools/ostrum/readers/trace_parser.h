#ifndef OSTRUM_TOOL_READERS_TRACE_PARSER_H
#define OSTRUM_TOOL_READERS_TRACE_PARSER_H
// The structure of a trace data file. A start record opens a path, a figures record closes the most recent
// open one. Damage (cut or foreign lines, bad numbers, missing records) is told with its offset, and
// reading goes on with what can still be told apart.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "readers/line_reader.h"
#include "readers/trace_record.h"

namespace ostrum_tool {

// What the parser tells, in the order of the file. Paths nest: each on_path is followed by its callees and
// buckets and by one on_figures, or by on_lost when its figures did not come. A sink overrides what it wants
// to know.
class trace_sink {
public:
    trace_sink() = default;
    virtual ~trace_sink() = default;
    trace_sink(const trace_sink&) = delete;
    trace_sink& operator=(const trace_sink&) = delete;

    virtual void on_frame(const start_record& /*frame*/, uint64_t /*offset*/) {}
    virtual void on_frame_end(const figures& /*record*/) {}
    // `missing`: stands in for a start record that could not be read; only its level is right.
    virtual void on_path(const start_record& /*path*/, uint64_t /*offset*/, bool /*missing*/) {}
    virtual void on_figures(const figures& /*record*/) {}
    virtual void on_lost() {}
    virtual void on_bucket(int32_t /*number*/, uint64_t /*offset*/, const figures& /*record*/) {
    } // of the open path
    virtual void on_damage(uint64_t /*offset*/, const std::string& /*what*/) {}
};

// What stands between two offsets of a text. Blocks belong to the range in which they begin, so that
// several parsers can share a file.
struct trace_range {
    uint64_t begin = 0;
    uint64_t end = UINT64_MAX;
    bool at_line = false; // what stands at `begin` belongs to the range, even when it is no block's begin
};

class trace_parser {
public:
    explicit trace_parser(trace_sink& sink) : sink_(sink) {}

    // `from` gives the bytes from range.begin on, or from the byte before it when that is not the file's
    // first.
    void read(byte_source& from, const trace_range& range);

    // Asked at the end of the text within a block or a line: true when the text may have grown meanwhile.
    std::function<bool()> may_have_grown = [] { return false; };

    [[nodiscard]] uint64_t end() const { return end_; }               // where reading stopped
    [[nodiscard]] uint64_t complete() const { return complete_; }     // behind the last block with an end
    [[nodiscard]] uint64_t last_frame() const { return last_frame_; } // where the last block begins
    // Blocks that began less those that ended. Of all ranges of an undamaged file the sum is 0.
    [[nodiscard]] int64_t open_frames() const { return open_frames_; }

private:
    enum class record_role { path, bucket };
    struct open_record {
        record_role role;
        int32_t level;
        int32_t bucket;
        uint64_t offset;
    };

    bool find_first_line(line_reader& lines, const trace_range& range) const;
    bool next_line(line_reader& lines, text_line& line) const;
    void read_line(const text_line& line);
    void read_start(const text_line& line);
    void read_figures(const text_line& line);
    void open(const start_record& record, uint64_t offset);
    void open_frame(const start_record& record, uint64_t offset);
    void open_unreadable(uint64_t offset);
    void push_missing(int32_t level, uint64_t offset);
    void close(const figures& record, const text_line& line);
    void close_frame(const figures& record, const text_line& line);
    void drop_top();
    void drop_from_level(int32_t level, uint64_t offset);
    void drop_bucket(uint64_t offset);
    void fill_up_to_level(int32_t level, uint64_t offset);

    [[nodiscard]] int32_t top_level() const { return stack_.empty() ? 0 : stack_.back().level; }

    trace_sink& sink_;
    std::vector<open_record> stack_;
    uint64_t begin_ = 0, end_ = 0, complete_ = 0, last_frame_ = 0;
    int64_t open_frames_ = 0;
};

// Whether a line opens a period frame, judged by its first bytes.
bool is_frame_start(std::string_view line);

} // namespace ostrum_tool
#endif
