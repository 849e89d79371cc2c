#include "data/data_file_command.h"

namespace ostrum_tool {
namespace {

// In file order.
constexpr std::array<const char*, metric_words> metric_names{"samples",
                                                             "u_cpu",
                                                             "s_cpu",
                                                             "rss_bytes",
                                                             "mem_bytes",
                                                             "children",
                                                             "threads",
                                                             "is_dm",
                                                             "dbno",
                                                             "shm_size",
                                                             "shm_used",
                                                             "shm_max_used",
                                                             "big_size",
                                                             "big_used",
                                                             "big_max_used",
                                                             "big_chunks",
                                                             "trans_op",
                                                             "trans_queued",
                                                             "trans_max",
                                                             "ops_done_total",
                                                             "ops_error_total",
                                                             "trans_done_total",
                                                             "trans_error_total",
                                                             "fe_connects",
                                                             "fe_connects_total",
                                                             "fe_connects_error_total"};

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
    return declare_data_file_command(app, show_metrics);
}

} // namespace

extern const command metrics_command;
const command metrics_command{"metrics", "Process metrics that the host has published", declare_metrics};

} // namespace ostrum_tool
