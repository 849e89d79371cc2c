#include "data_file/metric_words.h"

#include "data_file/table_access.h"

namespace ostrum {

void clear_metric_words(process_metrics_area& area)
{
    for (uint64_t& word : area.words) {
        if (&word != &area.words[is_dm_word]) {
            store_total(word, 0);
        }
    }
}

} // namespace ostrum
