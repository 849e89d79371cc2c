#include "readers/trace_file.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <limits>

#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr size_t max_line_bytes = 65'536;     // records stay below 1 KiB
constexpr int64_t max_reported_problems = 10; // a file
constexpr std::string_view trace_file_ending = ".plog.txt";

path_key key_of(const start_record& record, bool brief)
{
    path_key key;
    key.opcode = record.opcode;
    key.opname = record.opname;
    if (!brief) {
        key.flags = record.flags;
        key.program = record.program;
        key.fname = record.fname;
        key.lineno = record.lineno;
        key.obj_type = record.obj_type;
        key.db_num = record.db_num;
    }
    return key;
}

// Stands for a path whose start record could not be read.
path_key missing_record_key()
{
    path_key key;
    key.opname = "(missing record)";
    return key;
}

enum class line_end { newline, end_of_file, too_long, nothing_left };

// One line without its end, cut at the buffer's size; the rest of a longer line is skipped.
line_end next_line(std::istream& input, std::array<char, max_line_bytes>& buffer, std::string_view& line)
{
    input.getline(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    auto length = static_cast<size_t>(input.gcount());
    if (input.eof()) {
        line = {buffer.data(), length};
        return length == 0 ? line_end::nothing_left : line_end::end_of_file;
    }
    if (input.fail()) {
        input.clear();
        input.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
        return length == 0 ? line_end::nothing_left : line_end::too_long;
    }
    line = {buffer.data(), length - 1};
    return line_end::newline;
}

} // namespace

void trace_reader::read(std::istream& input, const std::string& name)
{
    std::array<char, max_line_bytes> buffer{};
    std::string_view line;
    file_name_ = name;
    line_ = 0;
    file_problems_ = 0;
    ++coverage_.files;
    for (;;) {
        const line_end end = next_line(input, buffer, line);
        if (end == line_end::nothing_left) {
            break;
        }
        ++line_;
        if (end == line_end::newline) {
            read_line(line);
        } else {
            // A number at the end of a cut line may lack digits, so none of it is used.
            report(end == line_end::too_long ? "line is too long" : "last line is cut short");
        }
    }
    if (input.bad()) {
        report("reading failed");
    }
    drop_from_level(period_frame_level);
}

void trace_reader::read_line(std::string_view line)
{
    std::string problem;
    if (line.starts_with("S,")) {
        start_record record;
        if (parse_start(line, record, problem)) {
            open(record);
            return;
        }
        open_unreadable();
    } else if (line.starts_with("F,")) {
        figures record;
        if (parse_figures(line, record, problem)) {
            close(record);
            return;
        }
        close_unreadable();
    } else {
        problem = "neither a start nor a figures record";
    }
    report(problem);
}

void trace_reader::open(const start_record& record)
{
    if (record.level == period_frame_level) {
        // Frames may lie inside one another: contexts that share a file flush in pieces.
        drop_from_level(period_frame_level + 1);
        note_frame(record);
        stack_.push_back({record_role::frame, period_frame_level, call_tree::root});
        return;
    }
    drop_from_level(record.level);
    fill_up_to_level(record.level);
    if (record.bucket > 0 && record.level > 1) {
        stack_.push_back({record_role::bucket, record.level, top_node()});
    } else {
        push_path(record.level, key_of(record, brief_));
    }
}

// Keeps the pairing of what follows right: the figures of this record are still to come.
void trace_reader::open_unreadable()
{
    if (top_level() < max_printed_level) {
        push_path(std::max(top_level(), period_frame_level) + 1, missing_record_key());
    } else {
        stack_.push_back(stack_.back());
    }
}

void trace_reader::close(const figures& record)
{
    if (stack_.empty()) {
        report("figures record without a start record");
        return;
    }
    const open_record closed = stack_.back();
    stack_.pop_back();
    call_node& node = tree_.at(closed.node);
    switch (closed.role) {
    case record_role::frame:
        coverage_.to_tv = std::max(coverage_.to_tv, record.total_tv);
        break;
    case record_role::path:
        ++coverage_.operations;
        node.sums.add(record);
        break;
    case record_role::bucket:
        node.buckets[{record.bs_tv, record.be_tv}].add(record);
        break;
    }
}

void trace_reader::close_unreadable()
{
    if (!stack_.empty()) {
        stack_.pop_back();
    }
}

// Gives up open records of that level and deeper: their figures did not come.
void trace_reader::drop_from_level(int32_t level)
{
    const size_t before = stack_.size();
    while (top_level() >= level) {
        stack_.pop_back();
    }
    if (stack_.size() != before) {
        report(std::to_string(before - stack_.size()) + " start records have no figures");
    }
}

// Stands in for enclosing records that are missing, so that later figures close the right ones.
void trace_reader::fill_up_to_level(int32_t level)
{
    if (top_level() == level - 1) {
        return;
    }
    report("level " + std::to_string(level) + " follows level " + std::to_string(top_level()) +
           ": start records are missing");
    if (stack_.empty()) {
        stack_.push_back({record_role::frame, period_frame_level, call_tree::root});
    }
    while (top_level() < level - 1) {
        push_path(top_level() + 1, missing_record_key());
    }
}

void trace_reader::push_path(int32_t level, const path_key& key)
{
    stack_.push_back({record_role::path, level, tree_.child(top_node(), key)});
}

void trace_reader::note_frame(const start_record& record)
{
    ++coverage_.flushes;
    coverage_.processes.insert(record.pid);
    coverage_.threads.insert({record.pid, record.tid});
    if (coverage_.from_tv == 0 || record.time_tv < coverage_.from_tv) {
        coverage_.from_tv = record.time_tv;
    }
}

void trace_reader::report(const std::string& problem)
{
    ++problems_.count;
    if (++file_problems_ <= max_reported_problems) {
        problems_.texts.push_back(file_name_ + ":" + std::to_string(line_) + ": " + problem);
    }
}

std::vector<std::string> trace_files_of(const std::string& path)
{
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status)) {
        throw input_error(path + ": " + (error ? error.message() : "no such file or directory"));
    }
    if (!fs::is_directory(status)) {
        return {path};
    }
    std::vector<std::string> files;
    for (fs::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().string();
        if (name.ends_with(trace_file_ending)) {
            files.push_back(name);
        }
    }
    if (error) {
        throw input_error(path + ": " + error.message());
    }
    if (files.empty()) {
        throw input_error(path + ": holds no trace data files (*" + std::string(trace_file_ending) + ")");
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace ostrum_tool
