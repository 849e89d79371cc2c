#include "data_file_command.h"

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

int run_metrics(const arguments& given, const streams& to)
{
    const output_format format = format_of(given);
    const data_file file = data_file_of(given, to);
    text_table table({{"metric", align::left}, {"value", align::right}});
    for (size_t word = 0; word < metric_words; ++word) {
        table.add_row({metric_names[word], std::to_string(file.metrics[word])});
    }
    table.print(to.out, format);
    return 0;
}

} // namespace

const command metrics_command{"metrics", "DATAFILE", "process metrics that the host has published",
                              data_file_options, run_metrics};

} // namespace ostrum_tool
