#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iostream>

#include "command_line.h"
#include "readers/trace_file.h"
#include "report_rows.h"
#include "tool_errors.h"
#include "value_text.h"

namespace ostrum_tool {
namespace {

constexpr option_spec options[] = {
    {"--sort", "KEY", "order of siblings: total (default), self, calls, errors, average, max, name"},
    {"--depth", "N", "show only the outermost N levels"},
    {"--buckets", nullptr, "show the duration histogram of operations that have buckets"},
    {"--brief", nullptr, "one row per operation and parent, whatever its flags, program, source, type, db"},
    format_option,
};

int32_t depth_of(const std::string& text)
{
    int32_t depth = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), depth);
    if (error != std::errc{} || end != text.data() + text.size() || depth < 1) {
        throw usage_error("--depth needs a number of levels, 1 or more");
    }
    return depth;
}

report_options report_options_of(const arguments& given)
{
    report_options chosen;
    chosen.format = format_named(given.value("--format", "text"));
    chosen.sort = sort_key_named(given.value("--sort", "total"));
    chosen.max_depth = given.has("--depth") ? depth_of(given.value("--depth", "")) : 0;
    chosen.buckets = given.has("--buckets");
    return chosen;
}

void read_file(trace_reader& reader, const std::string& path)
{
    if (path == "-") {
        reader.read(std::cin, "standard input");
        return;
    }
    std::ifstream input(path, std::ios::binary);
    if (!input) {
        throw input_error(path + ": " + std::strerror(errno));
    }
    reader.read(input, path);
}

// Reads what can be read; false when one of the operands, or a file of it, could not be.
bool read_operands(trace_reader& reader, const arguments& given, std::ostream& err)
{
    bool complete = true;
    const auto attempt = [&](const auto& action) {
        try {
            action();
        } catch (const input_error& error) {
            err << "ostrum: " << error.what() << "\n";
            complete = false;
        }
    };
    for (const std::string& operand : given.operands) {
        attempt([&] {
            for (const std::string& path :
                 operand == "-" ? std::vector<std::string>{operand} : trace_files_of(operand)) {
                attempt([&] { read_file(reader, path); });
            }
        });
    }
    return complete;
}

void print_problems(std::ostream& err, const trace_problems& problems)
{
    for (const std::string& text : problems.texts) {
        err << printable(text) << "\n";
    }
    const int64_t hidden = problems.count - static_cast<int64_t>(problems.texts.size());
    if (hidden > 0) {
        err << "... and " << hidden << " more\n";
    }
}

std::string counted(size_t count, const std::string& one, const std::string& many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

void print_header(std::ostream& out, const trace_coverage& coverage)
{
    out << counted(static_cast<size_t>(coverage.files), "file", "files") << ", "
        << counted(coverage.processes.size(), "process", "processes") << ", "
        << counted(coverage.threads.size(), "thread", "threads") << ", "
        << counted(static_cast<size_t>(coverage.flushes), "flush", "flushes");
    if (coverage.from_tv > 0 && coverage.to_tv > 0) {
        out << ", " << date_text(coverage.from_tv) << " to " << date_text(coverage.to_tv);
    }
    out << "\n\n";
}

int run_report(const arguments& given, const streams& to)
{
    const report_options chosen = report_options_of(given);
    if (given.operands.empty()) {
        throw usage_error("a directory or a trace data file is needed");
    }
    trace_reader reader(given.has("--brief"));
    const bool complete = read_operands(reader, given, to.err);
    print_problems(to.err, reader.problems());
    if (reader.coverage().operations == 0) {
        throw input_error("no operations found in the input");
    }
    if (chosen.format == output_format::text) {
        print_header(to.out, reader.coverage());
    }
    report_table(reader.tree(), chosen).print(to.out, chosen.format);
    return complete ? 0 : exit_input;
}

} // namespace

const command report_command{"report", "DIR_OR_FILE...", "call tree of trace data files, merged", options,
                             run_report};

} // namespace ostrum_tool
