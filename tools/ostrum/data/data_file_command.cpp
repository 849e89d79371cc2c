#include "data/data_file_command.h"

namespace ostrum_tool {
namespace {

struct data_file_choice {
    std::string path;
    bool locked = false;
    output_format format = output_format::text;
};

} // namespace

command_body declare_data_file_command(CLI::App& app, locked_reading read_locked, data_file_show show)
{
    const auto chosen = std::make_shared<data_file_choice>();
    add_data_file_operand(app, chosen->path);
    app.add_flag("--locked", chosen->locked,
                 "Read through the library, which takes the file's locks: numbers that belong together");
    add_format_options(app, chosen->format);
    return [chosen, read_locked, show = std::move(show)](const streams& to) {
        data_file file = read_data_file(chosen->path);
        for (const std::string& problem : file.problems) {
            to.err << chosen->path << ": " << problem << "\n";
        }
        if (chosen->locked) {
            read_locked(open_with_locks(chosen->path).get(), file);
        }
        show(file, chosen->format, to);
        return file.problems.empty() ? exit_done : exit_damaged;
    };
}

void add_row_options(CLI::App& app, row_choice& chosen, const std::vector<std::string>& fields,
                     const std::vector<column>& columns)
{
    add_list(app, "--by", chosen.by, "Merge what is equal in these key fields")->check(CLI::IsMember(fields));
    std::vector<std::string> keys;
    for (const column& each : columns) {
        if (!each.key.empty()) {
            keys.push_back(each.key);
        }
    }
    app.add_option("--sort", chosen.sort, "Column that orders the rows (default: " + chosen.sort + ")")
        ->check(CLI::IsMember(keys));
    app.add_option("--top", chosen.top, "Only so many rows, the first of that order; 0: all (default)");
}

std::string choices_text(const row_choice& chosen, size_t rows)
{
    std::string text =
        chosen.by.empty() ? "" : fmt::format("merged by {}: {} rows\n", fmt::join(chosen.by, ", "), rows);
    if (chosen.top != 0 && chosen.top < rows) {
        text += fmt::format("the first {} of {} by {}\n", chosen.top, rows, chosen.sort);
    }
    return text;
}

} // namespace ostrum_tool
