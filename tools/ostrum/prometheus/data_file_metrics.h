#ifndef OSTRUM_TOOL_PROMETHEUS_DATA_FILE_METRICS_H
#define OSTRUM_TOOL_PROMETHEUS_DATA_FILE_METRICS_H
// Data files as metrics: "export --prometheus" and "serve" give the same.
#include <optional>
#include <string>
#include <vector>

#include "prometheus/exposition.h"
#include "prometheus/label_fields.h"
#include "readers/data_file.h"

namespace ostrum_tool {

struct exported_file {
    std::string path; // as it was named: the label data_file of all its metrics
    std::optional<data_file> content;
    std::string failure; // why there is no content
};

// Reads them as they are now. One that cannot be read stays in the list: its absence is a metric too.
std::vector<exported_file> read_exported_files(const std::vector<std::string>& paths);

std::string exposition_of(const std::vector<exported_file>& files, const label_choice& labels,
                          exposition_format format);

} // namespace ostrum_tool
#endif
