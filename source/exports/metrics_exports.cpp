// The exported entries of ostrum_data.h for process metrics.
#include "exports/seconds_text.h"
#include "ostrum_data.h"
#include "process_metrics/metrics_area.h"
#include "util/diagnostics.h"
#include "util/errno_keeper.h"
#include "util/resources.h"

using ostrum::process_metrics_area;

namespace {

int64_t metric(const ostrum_proc_metrics* record, size_t word)
{
    const auto* area = reinterpret_cast<const process_metrics_area*>(record);
    return area != nullptr ? static_cast<int64_t>(area->words[word]) : 0;
}

char* metric_seconds(const ostrum_proc_metrics* record, size_t word, char* buf, int32_t len)
{
    const int64_t value_tv = metric(record, word);
    return ostrum::seconds_text(record != nullptr ? &value_tv : nullptr, buf, len);
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

// One line each, in the order of the words.
// clang-format off
int64_t ostrum_proc_metrics_get_counter(const ostrum_proc_metrics* record) { return metric(record, ostrum::counter_word); }
int64_t ostrum_proc_metrics_get_u_cpu(const ostrum_proc_metrics* record) { return metric(record, ostrum::u_cpu_word); }
int64_t ostrum_proc_metrics_get_s_cpu(const ostrum_proc_metrics* record) { return metric(record, ostrum::s_cpu_word); }
int64_t ostrum_proc_metrics_get_rss_bytes(const ostrum_proc_metrics* record) { return metric(record, ostrum::rss_bytes_word); }
int64_t ostrum_proc_metrics_get_mem_bytes(const ostrum_proc_metrics* record) { return metric(record, ostrum::mem_bytes_word); }
int64_t ostrum_proc_metrics_get_children(const ostrum_proc_metrics* record) { return metric(record, ostrum::children_word); }
int64_t ostrum_proc_metrics_get_threads(const ostrum_proc_metrics* record) { return metric(record, ostrum::threads_word); }
int64_t ostrum_proc_metrics_get_is_dm(const ostrum_proc_metrics* record) { return metric(record, ostrum::is_dm_word); }
int64_t ostrum_proc_metrics_get_dbno(const ostrum_proc_metrics* record) { return metric(record, ostrum::dbno_word); }
int64_t ostrum_proc_metrics_get_shm_size(const ostrum_proc_metrics* record) { return metric(record, ostrum::shm_size_word); }
int64_t ostrum_proc_metrics_get_shm_used(const ostrum_proc_metrics* record) { return metric(record, ostrum::shm_used_word); }
int64_t ostrum_proc_metrics_get_shm_max_used(const ostrum_proc_metrics* record) { return metric(record, ostrum::shm_max_used_word); }
int64_t ostrum_proc_metrics_get_big_size(const ostrum_proc_metrics* record) { return metric(record, ostrum::big_size_word); }
int64_t ostrum_proc_metrics_get_big_used(const ostrum_proc_metrics* record) { return metric(record, ostrum::big_used_word); }
int64_t ostrum_proc_metrics_get_big_max_used(const ostrum_proc_metrics* record) { return metric(record, ostrum::big_max_used_word); }
int64_t ostrum_proc_metrics_get_big_chunks(const ostrum_proc_metrics* record) { return metric(record, ostrum::big_chunks_word); }
int64_t ostrum_proc_metrics_get_trans_op(const ostrum_proc_metrics* record) { return metric(record, ostrum::trans_op_word); }
int64_t ostrum_proc_metrics_get_trans_queued(const ostrum_proc_metrics* record) { return metric(record, ostrum::trans_queued_word); }
int64_t ostrum_proc_metrics_get_trans_max(const ostrum_proc_metrics* record) { return metric(record, ostrum::trans_max_word); }
int64_t ostrum_proc_metrics_get_ops_done_total(const ostrum_proc_metrics* record) { return metric(record, ostrum::ops_done_total_word); }
int64_t ostrum_proc_metrics_get_ops_error_total(const ostrum_proc_metrics* record) { return metric(record, ostrum::ops_error_total_word); }
int64_t ostrum_proc_metrics_get_trans_done_total(const ostrum_proc_metrics* record) { return metric(record, ostrum::trans_done_total_word); }
int64_t ostrum_proc_metrics_get_trans_error_total(const ostrum_proc_metrics* record) { return metric(record, ostrum::trans_error_total_word); }
int64_t ostrum_proc_metrics_get_fe_connects(const ostrum_proc_metrics* record) { return metric(record, ostrum::fe_connects_word); }
int64_t ostrum_proc_metrics_get_fe_connects_total(const ostrum_proc_metrics* record) { return metric(record, ostrum::fe_connects_total_word); }
int64_t ostrum_proc_metrics_get_fe_connects_error_total(const ostrum_proc_metrics* record) { return metric(record, ostrum::fe_connects_error_total_word); }

char* ostrum_proc_metrics_get_u_cpu_str(const ostrum_proc_metrics* record, char* buf, int32_t len) { return metric_seconds(record, ostrum::u_cpu_word, buf, len); }
char* ostrum_proc_metrics_get_s_cpu_str(const ostrum_proc_metrics* record, char* buf, int32_t len) { return metric_seconds(record, ostrum::s_cpu_word, buf, len); }
// clang-format on
