#include <filesystem>
#include <memory>

#include "check/check_file.h"
#include "cli/command.h"
#include "cli/option_values.h"
#include "output/value_text.h"
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
    for (const char* ending : {".plog.txt", ".flog.txt", "ostrum_data.dat"}) {
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
        for (const damage& each : text ? file.damages.first : std::vector<damage>{}) {
            to.out << printable(file.file) << ": offset " << each.offset << ": " << printable(each.what)
                   << "\n";
        }
        const auto more = file.damages.count - static_cast<int64_t>(file.damages.first.size());
        if (text && more > 0) {
            to.out << printable(file.file) << ": and " << more << " more\n";
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
    int status = exit_done;
    const auto fail = [&](const input_error& error) {
        to.err << "ostrum: " << printable(error.what()) << "\n";
        status = exit_input;
    };
    for (const std::string& operand :
         chosen.operands.empty() ? std::vector<std::string>{"."} : chosen.operands) {
        try {
            for (const std::string& file : files_to_check(operand)) {
                try {
                    all.push_back(check_file(file));
                } catch (const input_error& error) {
                    fail(error);
                }
            }
        } catch (const input_error& error) {
            fail(error);
        }
    }
    if (all.empty() && status == exit_done) {
        throw nothing_matched("no files *.plog.txt, *.flog.txt or ostrum_data.dat");
    }
    print_findings(all, chosen, to);
    const bool damaged =
        std::any_of(all.begin(), all.end(), [](const file_findings& file) { return file.damages.count > 0; });
    return status != exit_done ? status : damaged ? exit_damaged : exit_done;
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
