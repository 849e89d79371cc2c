#include "check/check_file.h"

#include <algorithm>
#include <filesystem>

#include "readers/data_file.h"
#include "readers/data_layout.h"
#include "readers/flist_trace.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

void check_trace(file_findings& findings)
{
    read_progress progress;
    tree_options options;
    options.brief = true; // fewer paths to remember
    trace_set set = read_traces({{findings.file}}, options, progress);
    if (!set.unreadable.empty()) {
        throw input_error(set.unreadable.front());
    }
    findings.bytes = findings.file == "-" ? set.bytes : look_at_source(findings.file).size_bytes;
    findings.blocks = set.coverage.flushes;
    findings.entries = set.coverage.operations;
    if (!set.damaged.empty()) {
        findings.damages = std::move(set.damaged.front().list);
    }
}

void check_flist_trace(file_findings& findings)
{
    const auto source = open_source(findings.file);
    const auto add = [&](uint64_t offset, const std::string& what) { findings.damages.add(offset, what); };
    try {
        const flist_summary summary = read_flist_trace(*source, {nullptr, add});
        findings.bytes = summary.bytes;
        findings.entries = summary.events;
    } catch (const damaged_input& error) {
        findings.damages.add(0, error.what());
    }
}

void check_data(file_findings& findings)
{
    const uint64_t size = look_at_source(findings.file).size_bytes;
    findings.bytes = size;
    if (size != data_file_bytes) {
        findings.damages.add(std::min<uint64_t>(size, data_file_bytes), "has " + std::to_string(size) +
                                                                            " bytes in place of " +
                                                                            std::to_string(data_file_bytes));
        return;
    }
    const std::vector<unsigned char> image = read_data_image(findings.file);
    for (const data_problem& problem : check_data_image(image)) {
        findings.damages.add(problem.offset, problem.what);
    }
    const data_file decoded = decode_data_file(image);
    findings.entries =
        static_cast<int64_t>(decoded.counters.size() + decoded.errors.size() + decoded.variables.size());
}

struct file_kind {
    const char* name;
    void (*check)(file_findings& findings);
};
constexpr file_kind trace_kind{"trace data", check_trace};
constexpr file_kind flist_kind{"field-list trace", check_flist_trace};
constexpr file_kind data_kind{"data file", check_data};
constexpr file_kind unknown_kind{
    "unknown", [](file_findings& findings) { findings.damages.add(0, "no file of this library"); }};

bool has_name(const std::string& path, const char* part)
{
    return std::filesystem::path(path).filename().string().find(part) != std::string::npos;
}

const file_kind& kind_by_name(const std::string& path)
{
    return has_name(path, ".plog.txt")   ? trace_kind
           : has_name(path, ".flog.txt") ? flist_kind
           : has_name(path, ".dat")      ? data_kind
                                         : unknown_kind;
}

// The first line, of standard input nothing: what is taken from it cannot be given back.
const file_kind& kind_of(const std::string& path)
{
    if (path == "-") {
        return trace_kind;
    }
    const auto source = open_source(path);
    line_reader lines(*source);
    text_line line;
    if (!lines.next(line)) {
        return kind_by_name(path);
    }
    const std::string_view text = line.text;
    if (text.starts_with(std::string_view(data_signature).substr(0, 12)) ||
        look_at_source(path).size_bytes == data_file_bytes) {
        return data_kind;
    }
    if (text.starts_with("S,") || text.starts_with("F,")) {
        return trace_kind;
    }
    return looks_like_flist_trace(text) ? flist_kind : kind_by_name(path);
}

} // namespace

file_findings check_file(const std::string& path)
{
    file_findings findings;
    findings.file = path;
    const file_kind& kind = kind_of(path);
    findings.kind = kind.name;
    kind.check(findings);
    findings.state = findings.damages.count > 0 ? "damaged" : findings.bytes == 0 ? "empty" : "ok";
    return findings;
}

} // namespace ostrum_tool
