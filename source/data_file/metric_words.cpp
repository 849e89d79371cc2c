#include "data_file/metric_words.h"

#include <iterator>

#include "data_file/table_access.h"

namespace ostrum {

namespace {

enum class update_rule : int32_t {
    count,     // one more for each update
    add,       // the record's word is added
    replace,   // the record's word is taken
    replace_dm // likewise, only from a data manager's record
};

update_rule rule_of(size_t word)
{
    if (word == counter_word) {
        return update_rule::count;
    }
    if (word <= s_cpu_word) {
        return update_rule::add;
    }
    return word < is_dm_word ? update_rule::replace : update_rule::replace_dm;
}

uint64_t load_word(uint64_t& word)
{
    return std::atomic_ref(word).load(std::memory_order_relaxed);
}

} // namespace

void merge_metric_words(process_metrics_area& area, const process_metrics_area& record)
{
    const bool from_dm = record.words[is_dm_word] != 0;
    for (size_t i = 0; i < std::size(area.words); ++i) {
        uint64_t& word = area.words[i];
        switch (rule_of(i)) {
        case update_rule::count:
            store_total(word, load_word(word) + 1);
            break;
        case update_rule::add:
            store_total(word, load_word(word) + record.words[i]);
            break;
        case update_rule::replace:
            store_total(word, record.words[i]);
            break;
        case update_rule::replace_dm:
            if (from_dm) {
                store_total(word, i == is_dm_word ? 1 : record.words[i]);
            }
            break;
        }
    }
}

void copy_metric_words(process_metrics_area& out, process_metrics_area& area)
{
    for (size_t i = 0; i < std::size(area.words); ++i) {
        out.words[i] = load_word(area.words[i]);
    }
}

void clear_metric_words(process_metrics_area& area)
{
    for (uint64_t& word : area.words) {
        if (&word != &area.words[is_dm_word]) {
            store_total(word, 0);
        }
    }
}

} // namespace ostrum
