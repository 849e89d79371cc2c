#ifndef OSTRUM_TOOL_PROMETHEUS_TEXTFILE_H
#define OSTRUM_TOOL_PROMETHEUS_TEXTFILE_H
#include <string>
#include <vector>

#include "cli/command.h"
#include "prometheus/label_fields.h"

namespace ostrum_tool {

// "export --prometheus": the metrics of data files as a file for a textfile collector, or, for "-", on out.
// Without paths of the default one. Files that cannot be read and problems go to err. Returns the exit
// status.
int export_prometheus(const std::string& target, const std::vector<std::string>& paths,
                      const label_choice& labels, const streams& to);

} // namespace ostrum_tool
#endif
