#ifndef OSTRUM_TOOL_TOP_PANES_H
#define OSTRUM_TOOL_TOP_PANES_H
// What top shows, as rows of typed cells: on the screen, or printed in batches.
#include <optional>
#include <string>
#include <vector>

#include "data/key_fields.h"
#include "output/record_columns.h"
#include "readers/data_looks.h"

namespace ostrum_tool {

enum class pane_kind { counters, errors, metrics, variables };

struct pane_content {
    std::vector<column> columns; // the first is the name; those that matter most come first
    std::vector<std::vector<cell>> rows;
    size_t gain_column = 0;           // of numbers: a row with 0 in it is idle
    size_t first_sort = 0;            // the column that orders the rows unless another one is chosen
    std::vector<size_t> leading = {}; // columns that come first on the screen: what the rows are grouped by
};

// Two looks to compare, or what has come since the tables were last reset, whenever that was.
struct comparison {
    const look* before = nullptr; // null: all that the file holds
    const look& now;

    [[nodiscard]] double seconds() const; // 0: unknown
};

// `kept` are fields of counters or of errors; the other panes ignore them.
pane_content build_pane(pane_kind kind, const comparison& compared, field_set kept);

struct arrangement {
    size_t sort_column = 0;
    bool descending = true;
    std::string pattern; // regular expression over all texts of a row, without regard to case
    bool hide_idle = false;
};

// By the column of that name, or by the one that orders the pane at first. Throws usage_error, which names
// the option.
arrangement arrangement_by(pane_kind kind, const std::string& column = "");

// Why a pattern cannot be used; nothing when it can.
std::optional<std::string> pattern_problem(const std::string& pattern);

// Drops the rows that are not to be shown, and sorts the others.
void arrange(pane_content& content, const arrangement& wanted);

} // namespace ostrum_tool
#endif
