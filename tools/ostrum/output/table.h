#ifndef OSTRUM_TOOL_OUTPUT_TABLE_H
#define OSTRUM_TOOL_OUTPUT_TABLE_H
// Rows of typed cells, printed in aligned columns for people or as JSON, JSON lines, CSV or TSV for
// programs. A column has a key for programs and a title for people; either may be missing.
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace ostrum_tool {

enum class output_format { text, json, jsonl, csv, tsv };

enum class cell_kind {
    text,
    number,
    duration, // ns; its key ends in "_ns"
    percent,
    object, // JSON; in CSV and TSV its text
};

// One value of a row. Nothing: "-" for people, null or an empty field for programs.
class cell {
public:
    enum class content { nothing, number, unsigned_number, real, text, json };

    cell() = default;
    cell(int64_t number) : holds_(content::number), number_(number) {}             // NOLINT: converts
    cell(uint64_t number) : holds_(content::unsigned_number), unsigned_(number) {} // NOLINT: converts
    cell(double real) : holds_(content::real), real_(real) {}                      // NOLINT: converts
    cell(std::string text) : holds_(content::text), text_(std::move(text)) {}      // NOLINT: converts
    static cell of_json(const nlohmann::ordered_json& value);

    [[nodiscard]] content holds() const { return holds_; }
    [[nodiscard]] int64_t number() const { return number_; }
    [[nodiscard]] uint64_t unsigned_number() const { return unsigned_; }
    [[nodiscard]] double real() const { return real_; }
    [[nodiscard]] const std::string& text() const { return text_; }
    [[nodiscard]] nlohmann::ordered_json json() const;

private:
    content holds_ = content::nothing;
    union {
        int64_t number_ = 0;
        uint64_t unsigned_;
        double real_;
    };
    std::string text_; // JSON is kept as its text
};

struct column {
    std::string key;   // empty: not for programs
    std::string title; // empty: not for people
    cell_kind kind = cell_kind::number;
};

// How a terminal or file takes what is printed.
struct text_style {
    bool colour = false;
    bool terminal = false; // what a terminal would act on is escaped in all formats
    bool ascii = true;     // no other characters for drawing
    size_t width = 0;      // columns; 0 = as many as are needed
};

class table {
public:
    explicit table(std::vector<column> columns) : columns_(std::move(columns)) {}

    // As many cells as columns.
    void add_row(std::vector<cell> cells) { rows_.push_back(std::move(cells)); }
    [[nodiscard]] bool empty() const { return rows_.empty(); }

    // `about` are further members of the JSON object, or the first of the JSON lines.
    void print(std::ostream& out, output_format format, const text_style& style,
               const nlohmann::ordered_json& about = nlohmann::ordered_json::object()) const;

private:
    void print_text(std::ostream& out, const text_style& style) const;
    void print_separated(std::ostream& out, output_format format, const text_style& style) const;
    [[nodiscard]] nlohmann::ordered_json row_object(const std::vector<cell>& row) const;

    std::vector<column> columns_;
    std::vector<std::vector<cell>> rows_;
};

// A cell as people read it.
std::string cell_text(const cell& value, cell_kind kind);

// A field as COPY and most readers of TSV take it.
std::string tab_escaped(std::string_view field);

// JSON on one line; bytes that are no UTF-8 become U+FFFD.
std::string json_text(const nlohmann::ordered_json& value);

} // namespace ostrum_tool
#endif
