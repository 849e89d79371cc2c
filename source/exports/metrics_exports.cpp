// The exported entries of ostrum_data.h for process metrics.
#include "ostrum_data.h"
#include "process_metrics/metrics_area.h"
#include "util/diagnostics.h"
#include "util/errno_keeper.h"
#include "util/resources.h"
#include "util/time_value.h"

using ostrum::process_metrics_area;

namespace {

int64_t metric(const ostrum_proc_metrics* record, size_t word)
{
    const auto* area = reinterpret_cast<const process_metrics_area*>(record);
    return area != nullptr ? static_cast<int64_t>(area->words[word]) : 0;
}

char* metric_time(const ostrum_proc_metrics* record, size_t word, char* buf, int32_t len)
{
    if (record != nullptr) {
        return ostrum_fmt_tv(metric(record, word), buf, len, ostrum::format_seconds_ns);
    }
    if (buf != nullptr && len > 0) {
        buf[0] = '\0';
    }
    return buf;
}

} // namespace

void ostrum_proc_metrics_set_cm_data(void)
{
    const ostrum::errno_keeper keeper;
    ostrum::publish_cm_metrics(ostrum_data_file_get());
}

void ostrum_proc_metrics_set_dm_data(uint64_t dbno, uint64_t shm_size, uint64_t shm_used,
                                     uint64_t shm_max_used, uint64_t big_size, uint64_t big_used,
                                     uint64_t big_max_used, uint64_t big_chunks, uint64_t trans_op,
                                     uint64_t trans_queued, uint64_t trans_max, uint64_t ops_done_total,
                                     uint64_t ops_error_total, uint64_t trans_done_total,
                                     uint64_t trans_error_total, uint64_t fe_connects,
                                     uint64_t fe_connects_total, uint64_t fe_connects_error_total)
{
    const ostrum::errno_keeper keeper;
    const uint64_t figures[] = {dbno,
                                shm_size,
                                shm_used,
                                shm_max_used,
                                big_size,
                                big_used,
                                big_max_used,
                                big_chunks,
                                trans_op,
                                trans_queued,
                                trans_max,
                                ops_done_total,
                                ops_error_total,
                                trans_done_total,
                                trans_error_total,
                                fe_connects,
                                fe_connects_total,
                                fe_connects_error_total};
    ostrum::publish_dm_metrics(ostrum_data_file_get(), figures);
}

ostrum_proc_metrics* ostrum_proc_metrics_get(rt_info* file)
{
    if (file == nullptr) {
        return nullptr;
    }
    const ostrum::errno_keeper keeper;
    auto copy = ostrum::heap_zeroed<process_metrics_area>();
    if (!copy) {
        err_print("ostrum_proc_metrics_get : out of memory\n");
        return nullptr;
    }
    rt_process_metrics_copy(copy.get(), file);
    return reinterpret_cast<ostrum_proc_metrics*>(copy.release());
}

void ostrum_proc_metrics_destroy(ostrum_proc_metrics* record)
{
    ostrum::os::release(record);
}

void ostrum_proc_metrics_reset(rt_info* file)
{
    rt_process_metrics_reset(file);
}

// In the order of the words.
#define METRIC(word, name)                                                                                   \
    int64_t ostrum_proc_metrics_get_##name(const ostrum_proc_metrics* record)                                \
    {                                                                                                        \
        return metric(record, word);                                                                         \
    }
#define METRIC_TIME(word, name)                                                                              \
    METRIC(word, name)                                                                                       \
    char* ostrum_proc_metrics_get_##name##_str(const ostrum_proc_metrics* record, char* buf, int32_t len)    \
    {                                                                                                        \
        return metric_time(record, word, buf, len);                                                          \
    }

METRIC(0, counter)
METRIC_TIME(1, u_cpu)
METRIC_TIME(2, s_cpu)
METRIC(3, rss_bytes)
METRIC(4, mem_bytes)
METRIC(5, children)
METRIC(6, threads)
METRIC(7, is_dm)
METRIC(8, dbno)
METRIC(9, shm_size)
METRIC(10, shm_used)
METRIC(11, shm_max_used)
METRIC(12, big_size)
METRIC(13, big_used)
METRIC(14, big_max_used)
METRIC(15, big_chunks)
METRIC(16, trans_op)
METRIC(17, trans_queued)
METRIC(18, trans_max)
METRIC(19, ops_done_total)
METRIC(20, ops_error_total)
METRIC(21, trans_done_total)
METRIC(22, trans_error_total)
METRIC(23, fe_connects)
METRIC(24, fe_connects_total)
METRIC(25, fe_connects_error_total)
