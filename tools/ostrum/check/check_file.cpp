#include "check/check_file.h"

#include <filesystem>

#include "readers/data_file.h"
#include "readers/data_layout.h"
#include "readers/flist_trace.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

enum class file_kind { trace, flist_trace, data, unknown };

bool has_name(const std::string& path, const char* part)
{
    return std::filesystem::path(path).filename().string().find(part) != std::string::npos;
}

file_kind kind_by_name(const std::string& path)
{
    return has_name(path, ".plog.txt")   ? file_kind::trace
           : has_name(path, ".flog.txt") ? file_kind::flist_trace
           : has_name(path, ".dat")      ? file_kind::data
                                         : file_kind::unknown;
}

// The first line, of standard input nothing: what is taken from it cannot be given back.
file_kind kind_of(const std::string& path)
{
    if (path == "-") {
        return file_kind::trace;
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
        return file_kind::data;
    }
    if (text.starts_with("S,") || text.starts_with("F,")) {
        return file_kind::trace;
    }
    return looks_like_flist_trace(text) ? file_kind::flist_trace : kind_by_name(path);
}

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

} // namespace

file_findings check_file(const std::string& path)
{
    file_findings findings;
    findings.file = path;
    switch (kind_of(path)) {
    case file_kind::trace:
        findings.kind = "trace data";
        check_trace(findings);
        break;
    case file_kind::flist_trace:
        findings.kind = "field-list trace";
        check_flist_trace(findings);
        break;
    case file_kind::data:
        findings.kind = "data file";
        check_data(findings);
        break;
    case file_kind::unknown:
        findings.kind = "unknown";
        findings.damages.add(0, "no file of this library");
        break;
    }
    findings.state = findings.damages.count > 0 ? "damaged" : findings.bytes == 0 ? "empty" : "ok";
    return findings;
}

} // namespace ostrum_tool
