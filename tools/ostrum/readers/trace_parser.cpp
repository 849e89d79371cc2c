#include "readers/trace_parser.h"

namespace ostrum_tool {
namespace {

constexpr int32_t first_path_level = period_frame_level + 1;

bool looks_like_frame_end(const figures& record)
{
    return record.total_calls == 1 && record.total_recs == 0 && record.min_tv == 0 && record.max_tv == 0;
}

} // namespace

bool is_frame_start(std::string_view line)
{
    return line.starts_with("S,0,");
}

void trace_parser::read(byte_source& from, const trace_range& range)
{
    line_reader lines(from, range.begin > 0 ? range.begin - 1 : 0);
    begin_ = complete_ = range.begin;
    if (find_first_line(lines, range)) {
        text_line line;
        while (next_line(lines, line)) {
            if (line.offset >= range.end && is_frame_start(line.text)) {
                lines.put_back(line);
                break;
            }
            read_line(line);
        }
    }
    end_ = lines.offset();
    drop_from_level(first_path_level, end_);
}

// Skips to the first block that begins within the range: what stands before it belongs to another range.
bool trace_parser::find_first_line(line_reader& lines, const trace_range& range) const
{
    if (range.begin == 0) {
        return true;
    }
    text_line line;
    const bool any = lines.next(line); // the rest of the line that the byte before the range belongs to
    if (!any || range.at_line) {
        return any;
    }
    while (lines.next(line)) {
        const bool found = is_frame_start(line.text) && line.offset < range.end;
        if (found || line.offset >= range.end) {
            lines.put_back(line);
            return found;
        }
    }
    return false;
}

bool trace_parser::next_line(line_reader& lines, text_line& line) const
{
    for (;;) {
        const bool given = lines.next(line);
        const bool at_end = !given || line.is == text_line::kind::unfinished;
        const bool within = given || open_frames_ > 0 || !stack_.empty();
        if (!at_end || !within || !may_have_grown()) {
            return given;
        }
        if (given) {
            lines.put_back(line);
        }
    }
}

void trace_parser::read_line(const text_line& line)
{
    if (line.is == text_line::kind::too_long) {
        sink_.on_damage(line.offset, "line is too long");
    } else if (line.is == text_line::kind::unfinished) {
        // A number at the end of a cut line may lack digits, so none of it is used.
        sink_.on_damage(line.offset, "last line is cut short");
    } else if (line.text.starts_with("S,")) {
        read_start(line);
    } else if (line.text.starts_with("F,")) {
        read_figures(line);
    } else if (!line.text.empty()) {
        sink_.on_damage(line.offset, "neither a start nor a figures record");
    }
}

void trace_parser::read_start(const text_line& line)
{
    start_record record;
    if (const char* const problem = parse_start(line.text, record); problem != nullptr) {
        sink_.on_damage(line.offset, problem);
        open_unreadable(line.offset);
    } else if (record.level == period_frame_level) {
        open_frame(record, line.offset);
    } else {
        open(record, line.offset);
    }
}

void trace_parser::read_figures(const text_line& line)
{
    figures record;
    if (const char* const problem = parse_figures(line.text, record); problem != nullptr) {
        sink_.on_damage(line.offset, problem);
        if (!stack_.empty()) {
            drop_top();
        }
    } else {
        close(record, line);
    }
}

// Frames may lie inside one another: contexts that share a file write blocks beyond 1 MiB in pieces, cut
// between two outermost paths.
void trace_parser::open_frame(const start_record& record, uint64_t offset)
{
    drop_from_level(first_path_level, offset);
    ++open_frames_;
    last_frame_ = offset;
    sink_.on_frame(record, offset);
}

void trace_parser::open(const start_record& record, uint64_t offset)
{
    drop_from_level(record.level, offset);
    drop_bucket(offset);
    fill_up_to_level(record.level, offset);
    if (record.bucket > 0 && record.level > first_path_level) {
        stack_.push_back({record_role::bucket, record.level, record.bucket, offset});
    } else {
        stack_.push_back({record_role::path, record.level, 0, offset});
        sink_.on_path(record, offset, false);
    }
}

// Keeps the pairing of what follows right: the figures of this record are still to come.
void trace_parser::open_unreadable(uint64_t offset)
{
    drop_bucket(offset);
    if (top_level() < max_printed_level) {
        push_missing(top_level() + 1, offset);
    }
}

void trace_parser::push_missing(int32_t level, uint64_t offset)
{
    start_record record;
    record.level = level;
    record.opname = "(missing record)";
    stack_.push_back({record_role::path, level, 0, offset});
    sink_.on_path(record, offset, true);
}

void trace_parser::close(const figures& record, const text_line& line)
{
    if (stack_.empty()) {
        close_frame(record, line);
        return;
    }
    const open_record closed = stack_.back();
    stack_.pop_back();
    if (closed.role == record_role::bucket) {
        sink_.on_bucket(closed.bucket, closed.offset, record);
    } else {
        sink_.on_figures(record);
    }
}

void trace_parser::close_frame(const figures& record, const text_line& line)
{
    // The block may have begun in an earlier range, in which case only the figures tell what this is.
    if (open_frames_ <= 0 && (begin_ == 0 || !looks_like_frame_end(record))) {
        sink_.on_damage(line.offset, "figures record without a start record");
        return;
    }
    --open_frames_;
    complete_ = line.end;
    sink_.on_frame_end(record);
}

void trace_parser::drop_top()
{
    if (stack_.back().role == record_role::path) {
        sink_.on_lost();
    }
    stack_.pop_back();
}

// Gives up open records of that level and deeper: their figures did not come.
void trace_parser::drop_from_level(int32_t level, uint64_t offset)
{
    size_t dropped = 0;
    for (; !stack_.empty() && top_level() >= level; ++dropped) {
        drop_top();
    }
    if (dropped > 0) {
        sink_.on_damage(offset, std::to_string(dropped) + " start records have no figures");
    }
}

// Nothing but its figures follows the start record of a bucket: what stands below it would not belong to it.
void trace_parser::drop_bucket(uint64_t offset)
{
    if (!stack_.empty() && stack_.back().role == record_role::bucket) {
        drop_from_level(top_level(), offset);
    }
}

// Stands in for enclosing records that are missing, so that later figures close the right ones.
void trace_parser::fill_up_to_level(int32_t level, uint64_t offset)
{
    if (top_level() >= level - 1) {
        return;
    }
    sink_.on_damage(offset, "level " + std::to_string(level) + " follows level " +
                                std::to_string(top_level()) + ": start records are missing");
    while (top_level() < level - 1) {
        push_missing(top_level() + 1, offset);
    }
}

} // namespace ostrum_tool
