#include "output/table.h"

#include <algorithm>

#include <fmt/format.h>

#include "output/value_text.h"

namespace ostrum_tool {
namespace {

using nlohmann::ordered_json;

constexpr const char* between_columns = "  ";

std::string quoted(const std::string& field)
{
    if (field.find_first_of(",\"\n\r") == std::string::npos) {
        return field;
    }
    std::string text = "\"";
    for (const char c : field) {
        text += c;
        if (c == '"') {
            text += c;
        }
    }
    return text + "\"";
}

std::string field_text(const cell& value)
{
    switch (value.holds()) {
    case cell::content::nothing:
        return "";
    case cell::content::text:
    case cell::content::json:
        return value.text();
    case cell::content::real:
        return fmt::format("{:.3f}", value.real());
    default:
        return json_text(value.json());
    }
}

} // namespace

std::string json_text(const ordered_json& value)
{
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

cell cell::of_json(const ordered_json& value)
{
    cell made(json_text(value));
    made.holds_ = content::json;
    return made;
}

ordered_json cell::json() const
{
    switch (holds_) {
    case content::nothing:
        break;
    case content::number:
        return number_;
    case content::unsigned_number:
        return unsigned_;
    case content::real:
        return real_;
    case content::text:
        return text_;
    case content::json:
        return ordered_json::parse(text_);
    }
    return nullptr;
}

std::string tab_escaped(std::string_view field)
{
    std::string text;
    for (const char c : field) {
        text += c == '\\'   ? "\\\\"
                : c == '\t' ? "\\t"
                : c == '\n' ? "\\n"
                : c == '\r' ? "\\r"
                            : std::string(1, c);
    }
    return text;
}

std::string cell_text(const cell& value, cell_kind kind)
{
    switch (value.holds()) {
    case cell::content::nothing:
        return "-";
    case cell::content::text:
        return printable(value.text());
    case cell::content::number:
        return kind == cell_kind::duration ? duration_text(value.number()) : std::to_string(value.number());
    case cell::content::real:
        return kind == cell_kind::percent ? percent_text(value.real()) : field_text(value);
    default:
        return field_text(value);
    }
}

void table::print(std::ostream& out, output_format format, const text_style& style,
                  const ordered_json& about) const
{
    if (format == output_format::text) {
        print_text(out, style);
        return;
    }
    if (format == output_format::csv || format == output_format::tsv) {
        print_separated(out, format, style);
        return;
    }
    ordered_json head = {{"schema", 1}};
    head.update(about);
    const bool lines = format == output_format::jsonl;
    std::string start = json_text(head);
    out << (lines ? start + "\n" : start.substr(0, start.size() - 1) + ",\"rows\":[");
    const char* separator = "\n";
    for (const auto& row : rows_) {
        out << (lines ? "" : std::exchange(separator, ",\n")) << json_text(row_object(row))
            << (lines ? "\n" : "");
    }
    out << (lines ? "" : "\n]}\n");
}

ordered_json table::row_object(const std::vector<cell>& row) const
{
    ordered_json object = ordered_json::object();
    for (size_t at = 0; at < columns_.size(); ++at) {
        if (!columns_[at].key.empty()) {
            object[columns_[at].key] = row[at].json();
        }
    }
    return object;
}

void table::print_separated(std::ostream& out, output_format format, const text_style& style) const
{
    const bool csv = format == output_format::csv;
    const auto print_line = [&](const auto& field_at) {
        const char* separator = "";
        for (size_t at = 0; at < columns_.size(); ++at) {
            if (!columns_[at].key.empty()) {
                out << separator << (csv ? quoted(field_at(at)) : tab_escaped(field_at(at)));
                separator = csv ? "," : "\t";
            }
        }
        out << "\n";
    };
    print_line([&](size_t at) { return columns_[at].key; });
    for (const auto& row : rows_) {
        print_line([&](size_t at) {
            const std::string field = field_text(row[at]);
            return style.terminal ? printable(field) : field;
        });
    }
}

// The first column gives way when the line is wider than the terminal.
void table::print_text(std::ostream& out, const text_style& style) const
{
    std::vector<size_t> shown;
    std::vector<size_t> widths;
    size_t line_width = 0;
    for (size_t at = 0; at < columns_.size(); ++at) {
        if (columns_[at].title.empty()) {
            continue;
        }
        size_t width = display_width(columns_[at].title);
        for (const auto& row : rows_) {
            width = std::max(width, display_width(cell_text(row[at], columns_[at].kind)));
        }
        line_width += width + (shown.empty() ? 0 : 2);
        shown.push_back(at);
        widths.push_back(width);
    }
    if (style.width > 0 && line_width > style.width && !shown.empty()) {
        constexpr size_t least_width = 16;
        const size_t excess = line_width - style.width;
        widths[0] = std::max(std::min(widths[0], least_width), widths[0] - std::min(widths[0], excess));
    }
    const auto print_line = [&](const auto& text_at, const char* before, const char* behind) {
        std::string line;
        for (size_t place = 0; place < shown.size(); ++place) {
            const bool right = columns_[shown[place]].kind != cell_kind::text;
            line += (place == 0 ? "" : between_columns) +
                    padded(cut_to(text_at(place), widths[place]), widths[place], right);
        }
        out << before << line.substr(0, line.find_last_not_of(' ') + 1) << behind << "\n";
    };
    print_line([&](size_t place) { return columns_[shown[place]].title; }, style.colour ? "\x1b[1m" : "",
               style.colour ? "\x1b[0m" : "");
    print_line([&](size_t place) { return std::string(widths[place], '-'); }, "", "");
    for (const auto& row : rows_) {
        print_line([&](size_t place) { return cell_text(row[shown[place]], columns_[shown[place]].kind); },
                   "", "");
    }
}

} // namespace ostrum_tool
