#ifndef OSTRUM_PROCESS_METRICS_METRICS_AREA_H
#define OSTRUM_PROCESS_METRICS_METRICS_AREA_H
// The process metrics in the data file. Every access takes the metrics lock and nothing else; SIGHUP is
// held back meanwhile, because its handler takes the same lock. Without the lock nothing is written.
#include <cstdint>

#include "data_file/data_file.h"

extern "C" {
// Merges a record: one more update, CPU times added, memory, children and threads replaced, and the words
// of a data manager replaced when the record's is_dm is not 0.
void rt_process_metrics_update(rt_info* handle, const ostrum::process_metrics_area* record);
// Copies all words, even when the lock cannot be had: a look at the file of a dead host.
void rt_process_metrics_copy(ostrum::process_metrics_area* out, rt_info* handle);
void rt_process_metrics_reset(rt_info* handle); // is_dm stays
}

namespace ostrum {

inline constexpr size_t dm_figure_count = metric_word_count - dbno_word;

// Sample this process and publish it, the second form with the data manager's eighteen figures. Nothing
// for a null handle.
void publish_cm_metrics(rt_info* handle);
void publish_dm_metrics(rt_info* handle, const uint64_t (&figures)[dm_figure_count]);

} // namespace ostrum
#endif
