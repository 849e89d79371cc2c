#ifndef OSTRUM_TOOL_TEXT_TABLE_H
#define OSTRUM_TOOL_TEXT_TABLE_H
// Rows in aligned columns, or as CSV.
#include <ostream>
#include <string>
#include <vector>

namespace ostrum_tool {

enum class output_format { text, csv };

// The value of --format. Throws usage_error.
output_format format_named(const std::string& name);

enum class align { left, right };

struct column {
    const char* title;
    align side;
};

class text_table {
public:
    explicit text_table(std::vector<column> columns) : columns_(std::move(columns)) {}

    void add_row(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    void print(std::ostream& out, output_format format) const;

private:
    void print_text(std::ostream& out) const;
    void print_csv(std::ostream& out) const;

    std::vector<column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

} // namespace ostrum_tool
#endif
