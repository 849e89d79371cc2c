#ifndef OSTRUM_TOOL_REPORT_ROWS_H
#define OSTRUM_TOOL_REPORT_ROWS_H
// The rows of a call-tree report: order of siblings, labels, figures and duration histograms.
#include <string>
#include <vector>

#include "readers/call_tree.h"
#include "text_table.h"

namespace ostrum_tool {

enum class sort_key { total, self, calls, errors, average, max, name };

// The value of --sort. Throws usage_error.
sort_key sort_key_named(const std::string& name);

struct report_options {
    output_format format = output_format::text;
    sort_key sort = sort_key::total;
    int32_t max_depth = 0; // levels shown; 0 = all
    bool buckets = false;
};

text_table report_table(const call_tree& tree, const report_options& options);

} // namespace ostrum_tool
#endif
