#ifndef OSTRUM_TOOL_REPORT_REPORT_ROWS_H
#define OSTRUM_TOOL_REPORT_REPORT_ROWS_H
// The rows of a call-tree report: figures, percentiles and duration histograms of what is visible.
#include <string>
#include <vector>

#include "output/table.h"
#include "readers/tree_builder.h"
#include "report/profile.h"

namespace ostrum_tool {

struct report_options {
    output_format format = output_format::text;
    sort_key sort = path_figure::total;
    bool buckets = false;
    std::vector<double> percentiles;
    size_t top = 0; // rows of each caller; 0 = all
};

table report_table(const call_profile& profile, const std::vector<bool>& visible,
                   const report_options& options);

// The columns that name a path, and its cells in them: for all tables of paths.
std::vector<column> path_columns();
std::vector<cell> path_cells(const call_tree& tree, node_index index, const std::string& label);

// "3 files, 2 processes, 5 threads, 40 flushes, 2026-11-21 10:00:00 to 2026-11-21 11:00:00"
std::string coverage_text(const trace_coverage& coverage);

} // namespace ostrum_tool
#endif
