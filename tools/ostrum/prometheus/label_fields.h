#ifndef OSTRUM_TOOL_PROMETHEUS_LABEL_FIELDS_H
#define OSTRUM_TOOL_PROMETHEUS_LABEL_FIELDS_H
// Which key fields of the data file's tables become labels. Records that are equal in those are added up, so
// that there are never more series than table entries, and no two of the same labels.
#include <string>
#include <vector>

#include <CLI/App.hpp>

#include "readers/data_file.h"

namespace ostrum_tool {

struct label_choice {
    // Source lines change from build to build, and old series with them: they are there on demand only.
    std::vector<std::string> operations{"operation", "flags", "program", "type", "db"};
    std::vector<std::string> errors{"error", "class", "location", "operation", "program", "db"};
};

// The chosen fields of a record, behind what `labels` holds already.
void add_key_labels(std::string& labels, const operation_counter& counter, const label_choice& chosen);
void add_key_labels(std::string& labels, const error_counter& error, const label_choice& chosen);

// --labels, --error-labels
void add_label_options(CLI::App& app, label_choice& chosen);

} // namespace ostrum_tool
#endif
