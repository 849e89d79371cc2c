#include <algorithm>
#include <filesystem>
#include <memory>

#include "check/check_file.h"
#include "cli/trace_options.h"
#include "output/value_text.h"
#include "readers/data_file.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

struct check_choice {
    std::vector<std::string> operands;
    bool quiet = false;
    output_format format = output_format::text;
};

// The files of a directory that this library writes; a file itself.
std::vector<std::string> files_to_check(const std::string& operand)
{
    namespace fs = std::filesystem;
    std::error_code error;
    if (operand == "-" || !fs::is_directory(operand, error)) {
        return {operand};
    }
    std::vector<std::string> files;
    for (const char* ending : {".plog.txt", ".flog.txt", default_data_file}) {
        const std::vector<std::string> found = trace_files_of(operand, ending);
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

nlohmann::ordered_json damages_json(const damage_list& damages)
{
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const damage& each : damages.first) {
        list.push_back({{"offset", each.offset}, {"what", each.what}});
    }
    return list;
}

void print_findings(const std::vector<file_findings>& all, const check_choice& chosen, const streams& to)
{
    const bool text = chosen.format == output_format::text;
    for (const file_findings& file : all) {
        if (text) {
            print_damages(file.file, file.damages, damage_list::most_kept, to.out);
        }
    }
    table rows({{"file", "file", cell_kind::text},
                {"kind", "kind", cell_kind::text},
                {"bytes", "bytes"},
                {"blocks", "blocks"},
                {"entries", "entries"},
                {"damages", "damages"},
                {"state", "state", cell_kind::text},
                {"first_damages", "", cell_kind::object}});
    for (const file_findings& file : all) {
        if (!chosen.quiet || file.state != "ok" || !text) {
            rows.add_row({file.file, file.kind, file.bytes, file.blocks, file.entries, file.damages.count,
                          file.state, cell::of_json(damages_json(file.damages))});
        }
    }
    if (!rows.empty()) {
        rows.print(to.out, chosen.format, to.style, {{"kind", "check"}});
    }
}

int run_check(const check_choice& chosen, const streams& to)
{
    std::vector<file_findings> all;
    const auto check_one = [&](const std::string& file) { all.push_back(check_file(file)); };
    bool all_read = true;
    const bool all_named =
        for_each_readable(operands_or_here(chosen.operands), to, [&](const std::string& operand) {
            all_read = for_each_readable(files_to_check(operand), to, check_one) && all_read;
        });
    const bool failed = !all_named || !all_read;
    if (all.empty() && !failed) {
        throw nothing_matched("no files *.plog.txt, *.flog.txt or ostrum_data.dat");
    }
    print_findings(all, chosen, to);
    const bool damaged =
        std::any_of(all.begin(), all.end(), [](const file_findings& file) { return file.damages.count > 0; });
    return failed ? exit_input : damaged ? exit_damaged : exit_done;
}

command_body declare_check(CLI::App& app)
{
    const auto chosen = std::make_shared<check_choice>();
    app.add_option("FILE", chosen->operands,
                   "Trace data files, field-list traces, data files, directories of them, or - (default: "
                   "this directory)");
    app.add_flag("-q,--quiet", chosen->quiet, "Say nothing of files in order");
    add_format_options(app, chosen->format);
    return [chosen](const streams& to) { return run_check(*chosen, to); };
}

} // namespace

extern const command check_command;
const command check_command{"check", "Says what in files of the library is damaged, and where",
                            declare_check};

} // namespace ostrum_tool
