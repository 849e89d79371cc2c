#ifndef OSTRUM_TOOL_DATA_DATA_FILE_COMMAND_H
#define OSTRUM_TOOL_DATA_DATA_FILE_COMMAND_H
// What the commands over the data file have in common.
#include <memory>
#include <string>

#include "cli/command.h"
#include "cli/option_values.h"
#include "output/value_text.h"
#include "readers/data_file.h"
#include "tool_errors.h"

namespace ostrum_tool {

struct data_file_choice {
    std::string path = "ostrum_data.dat";
    output_format format = output_format::text;
};

// The operand and the formats; `run` gets the file as it is at that moment.
template <typename Run>
command_body declare_data_file_command(CLI::App& app, Run run)
{
    const auto chosen = std::make_shared<data_file_choice>();
    app.add_option("DATAFILE", chosen->path, "The data file (default: ostrum_data.dat)");
    add_format_options(app, chosen->format);
    return [chosen, run](const streams& to) {
        const data_file file = read_data_file(chosen->path);
        for (const std::string& problem : file.problems) {
            to.err << chosen->path << ": " << problem << "\n";
        }
        run(file, chosen->format, to);
        return file.problems.empty() ? exit_done : exit_damaged;
    };
}

// Totals are unsigned in the file; beyond the signed range they are damage and show as the largest number.
inline int64_t signed_value(uint64_t word)
{
    return word > INT64_MAX ? INT64_MAX : static_cast<int64_t>(word);
}

} // namespace ostrum_tool
#endif
