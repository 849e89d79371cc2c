#include "text_table.h"

#include <algorithm>

#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr const char* between_columns = "  ";

std::string quoted(const std::string& cell)
{
    if (cell.find_first_of(",\"\n\r") == std::string::npos) {
        return cell;
    }
    std::string text = "\"";
    for (const char c : cell) {
        text += c;
        if (c == '"') {
            text += c;
        }
    }
    return text + "\"";
}

std::string padded(const std::string& cell, size_t width, align side)
{
    const std::string blanks(width - std::min(width, cell.size()), ' ');
    return side == align::left ? cell + blanks : blanks + cell;
}

void print_csv_line(std::ostream& out, const std::vector<std::string>& cells)
{
    const char* separator = "";
    for (const std::string& cell : cells) {
        out << separator << quoted(cell);
        separator = ",";
    }
    out << "\n";
}

} // namespace

output_format format_named(const std::string& name)
{
    if (name == "text") {
        return output_format::text;
    }
    if (name == "csv") {
        return output_format::csv;
    }
    throw usage_error("unknown format " + name + ": text or csv");
}

void text_table::print(std::ostream& out, output_format format) const
{
    if (format == output_format::csv) {
        print_csv(out);
    } else {
        print_text(out);
    }
}

void text_table::print_csv(std::ostream& out) const
{
    std::vector<std::string> titles;
    for (const column& each : columns_) {
        titles.emplace_back(each.title);
    }
    print_csv_line(out, titles);
    for (const auto& row : rows_) {
        print_csv_line(out, row);
    }
}

void text_table::print_text(std::ostream& out) const
{
    std::vector<size_t> widths;
    for (size_t at = 0; at < columns_.size(); ++at) {
        size_t width = std::string(columns_[at].title).size();
        for (const auto& row : rows_) {
            width = std::max(width, row[at].size());
        }
        widths.push_back(width);
    }
    const auto print_line = [&](const auto& cell_at) {
        std::string line;
        for (size_t at = 0; at < columns_.size(); ++at) {
            line += (at == 0 ? "" : between_columns) + padded(cell_at(at), widths[at], columns_[at].side);
        }
        out << line.substr(0, line.find_last_not_of(' ') + 1) << "\n";
    };
    print_line([&](size_t at) { return std::string(columns_[at].title); });
    print_line([&](size_t at) { return std::string(widths[at], '-'); });
    for (const auto& row : rows_) {
        print_line([&](size_t at) { return row[at]; });
    }
}

} // namespace ostrum_tool
