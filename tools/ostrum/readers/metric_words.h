#ifndef OSTRUM_TOOL_READERS_METRIC_WORDS_H
#define OSTRUM_TOOL_READERS_METRIC_WORDS_H
// The words of the process metrics, in file order.
#include <cstddef>
#include <iterator>
#include <string_view>

namespace ostrum_tool {

// As programs know them. The first is kept, though it counts updates that were without a sample as well.
inline constexpr const char* metric_names[] = {"samples",
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
inline constexpr size_t metric_words = std::size(metric_names);

// The place of a word; only names that there are can be compiled.
consteval size_t metric_word(std::string_view name)
{
    size_t at = 0;
    while (metric_names[at] != name) {
        ++at;
    }
    return at;
}

} // namespace ostrum_tool
#endif
