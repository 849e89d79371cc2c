#ifndef OSTRUM_DATA_FILE_METRIC_WORDS_H
#define OSTRUM_DATA_FILE_METRIC_WORDS_H
#include "data_file/layout.h"

namespace ostrum {

// Sets every word of the process metrics to 0 but is_dm, which says for good whose file it is. Takes no
// lock: the caller holds the metrics lock, or resets the whole file.
void clear_metric_words(process_metrics_area& area);

} // namespace ostrum
#endif
