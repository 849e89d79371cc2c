#include "process_metrics/metrics_area.h"

#include <algorithm>
#include <csignal>
#include <iterator>

#include "data_file/locks.h"
#include "data_file/metric_words.h"
#include "os/signal_set.h"
#include "process_metrics/sampler.h"

namespace ostrum {

namespace {

// The handler of SIGHUP takes the metrics lock, so a thread that holds it must not be interrupted by it.
struct hangup_held_back {
    os::signals_blocked hangup{SIGHUP};
};

} // namespace

void publish_cm_metrics(rt_info* handle)
{
    if (handle == nullptr) {
        return;
    }
    process_metrics_area record;
    int32_t updated = 0;
    ostrum_get_process_data(&record, &updated);
    if (updated != 0) {
        rt_process_metrics_update(handle, &record);
    }
}

// Written whether or not a sample was due; without one the process's own figures become 0 (kept).
void publish_dm_metrics(rt_info* handle, const uint64_t (&figures)[dm_figure_count])
{
    if (handle == nullptr) {
        return;
    }
    process_metrics_area record;
    ostrum_get_process_data(&record, nullptr);
    record.words[is_dm_word] = 1;
    std::copy(std::begin(figures), std::end(figures), record.words + dbno_word);
    rt_process_metrics_update(handle, &record);
}

} // namespace ostrum

using namespace ostrum;

void rt_process_metrics_update(rt_info* handle, const process_metrics_area* record)
{
    const hangup_held_back masked;
    const data_file_guard guard(handle, DATA_FILE_LOCK_METRICS);
    if (guard) {
        merge_metric_words(handle->image->metrics, *record);
    }
}

void rt_process_metrics_copy(process_metrics_area* out, rt_info* handle)
{
    *out = {};
    if (handle == nullptr) {
        return;
    }
    const hangup_held_back masked;
    const data_file_guard guard(handle, DATA_FILE_LOCK_METRICS);
    copy_metric_words(*out, handle->image->metrics);
}

void rt_process_metrics_reset(rt_info* handle)
{
    const hangup_held_back masked;
    const data_file_guard guard(handle, DATA_FILE_LOCK_METRICS);
    if (guard) {
        clear_metric_words(handle->image->metrics);
    }
}
