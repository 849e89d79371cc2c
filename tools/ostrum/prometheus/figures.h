#ifndef OSTRUM_TOOL_PROMETHEUS_FIGURES_H
#define OSTRUM_TOOL_PROMETHEUS_FIGURES_H
// How the numbers of a record become samples.
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "prometheus/data_file_metrics.h"
#include "prometheus/exposition.h"

namespace ostrum_tool {

// One number of a record as the sample of a family. A table of them is where their families are described;
// rows of one family stand together in it.
template <typename Place>
struct figure {
    metric_family family;
    Place place;                  // which of the record's numbers
    const char* more_labels = ""; // what tells the family's rows apart
};

// Begins the row's family unless the row before is of the same.
template <typename Row>
void begin_figure(exposition& out, std::span<const Row> rows, size_t row)
{
    if (row == 0 || std::string_view(rows[row - 1].family.name) != rows[row].family.name) {
        out.begin(rows[row].family);
    }
}

// `value` is in ns where the family's unit is seconds.
template <typename Row>
void add_figure(exposition& out, const Row& row, std::string labels, uint64_t value)
{
    if (*row.more_labels != '\0') {
        labels += labels.empty() ? "" : ",";
        labels += row.more_labels;
    }
    if (row.family.unit == std::string_view("seconds")) {
        out.sample_seconds(labels, value);
    } else {
        out.sample(labels, value);
    }
}

inline std::string file_label(const exported_file& file)
{
    std::string labels;
    add_label(labels, "data_file", file.path);
    return labels;
}

// The 26 words that a host process publishes.
void add_process_metrics(exposition& out, const std::vector<exported_file>& files);

} // namespace ostrum_tool
#endif
