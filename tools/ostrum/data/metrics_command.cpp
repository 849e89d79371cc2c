#include "data/data_file_command.h"
#include "data/locked_reading.h"

namespace ostrum_tool {
namespace {

void show_metrics(const data_file& file, output_format format, const streams& to)
{
    table rows({{"metric", "metric", cell_kind::text}, {"value", "value"}});
    for (size_t word = 0; word < metric_words; ++word) {
        rows.add_row({std::string(metric_names[word]), file.metrics[word]});
    }
    rows.print(to.out, format, to.style, {{"kind", "metrics"}});
}

command_body declare_metrics(CLI::App& app)
{
    return declare_data_file_command(app, read_locked_metrics, show_metrics);
}

} // namespace

const command metrics_command{"metrics", "Process metrics that the host has published", declare_metrics};

} // namespace ostrum_tool
