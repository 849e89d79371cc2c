#ifndef OSTRUM_TOOL_DATA_METRIC_NAMES_H
#define OSTRUM_TOOL_DATA_METRIC_NAMES_H
// The words of the process metrics, in file order.
#include <array>

#include "readers/data_file.h"

namespace ostrum_tool {

inline constexpr std::array<const char*, metric_words> metric_names{"samples",
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

} // namespace ostrum_tool
#endif
