#ifndef OSTRUM_DATA_FILE_METRIC_WORDS_H
#define OSTRUM_DATA_FILE_METRIC_WORDS_H
#include "data_file/layout.h"

namespace ostrum {

// How the words of the process metrics change. No function here takes a lock: the caller holds the
// metrics lock, or resets the whole file.

void merge_metric_words(process_metrics_area& area, const process_metrics_area& record);
void copy_metric_words(process_metrics_area& out, process_metrics_area& area);
// Sets every word to 0 but is_dm, which says for good whose file it is.
void clear_metric_words(process_metrics_area& area);

} // namespace ostrum
#endif
