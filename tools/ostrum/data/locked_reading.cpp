#include "data/locked_reading.h"

#include <array>
#include <memory>

#include "tool_errors.h"

namespace ostrum_tool {
namespace {

// Texts of records end with their field, so they are no longer than that.
void convert(const ostrum_counter* from, operation_counter& to)
{
    to.opname = ostrum_counter_get_opname(from);
    to.program = ostrum_counter_get_program(from);
    to.fname = ostrum_counter_get_fname(from);
    to.obj_type = ostrum_counter_get_obj_type(from);
    to.opcode = static_cast<int32_t>(ostrum_counter_get_opcode(from));
    to.opflags = static_cast<uint32_t>(ostrum_counter_get_opflags(from));
    to.lineno = static_cast<int32_t>(ostrum_counter_get_lineno(from));
    to.db_number = ostrum_counter_get_db_number(from);
    to.recs = static_cast<uint64_t>(ostrum_counter_get_recs(from));
    to.calls = static_cast<uint64_t>(ostrum_counter_get_calls(from));
    to.errors = static_cast<uint64_t>(ostrum_counter_get_errors(from));
    to.total_tv = static_cast<uint64_t>(ostrum_counter_get_total_t(from));
    to.user_cpu_tv = static_cast<uint64_t>(ostrum_counter_get_u_cpu_t(from));
    to.sys_cpu_tv = static_cast<uint64_t>(ostrum_counter_get_s_cpu_t(from));
}

void convert(const ostrum_error* from, error_counter& to)
{
    to.opname = ostrum_error_get_opname(from);
    to.program = ostrum_error_get_program(from);
    to.dbno = ostrum_error_get_dbno(from);
    to.opcode = static_cast<int32_t>(ostrum_error_get_opcode(from));
    to.err_class = ostrum_error_get_class(from);
    to.location = ostrum_error_get_location(from);
    to.errnum = ostrum_error_get_errnum(from);
    to.count = static_cast<uint64_t>(ostrum_error_get_errcnt(from));
}

void convert(const ostrum_variable* from, variable& to)
{
    to.name = ostrum_variable_get_name(from);
    to.value = ostrum_variable_get_value(from);
}

// The list is the library's: it goes with this. No list means no records, or no memory for them, of which
// the library has said so then.
template <typename Get, typename Entry, typename Record>
void take_list(Get get, void (*destroy)(Entry**), std::vector<Record>& records)
{
    int32_t count = 0;
    Entry** const list = get(&count);
    const std::unique_ptr<Entry*, void (*)(Entry**)> owner(list, destroy);
    if (list == nullptr) {
        if (!records.empty()) {
            throw input_error("the library gave no records");
        }
        return;
    }
    records.assign(static_cast<size_t>(count), {});
    for (size_t at = 0; at < records.size(); ++at) {
        convert(list[at], records[at]);
    }
}

using metrics_getter = int64_t (*)(const ostrum_proc_metrics* record);
constexpr std::array<metrics_getter, metric_words> metrics_getters{
    ostrum_proc_metrics_get_counter,
    ostrum_proc_metrics_get_u_cpu,
    ostrum_proc_metrics_get_s_cpu,
    ostrum_proc_metrics_get_rss_bytes,
    ostrum_proc_metrics_get_mem_bytes,
    ostrum_proc_metrics_get_children,
    ostrum_proc_metrics_get_threads,
    ostrum_proc_metrics_get_is_dm,
    ostrum_proc_metrics_get_dbno,
    ostrum_proc_metrics_get_shm_size,
    ostrum_proc_metrics_get_shm_used,
    ostrum_proc_metrics_get_shm_max_used,
    ostrum_proc_metrics_get_big_size,
    ostrum_proc_metrics_get_big_used,
    ostrum_proc_metrics_get_big_max_used,
    ostrum_proc_metrics_get_big_chunks,
    ostrum_proc_metrics_get_trans_op,
    ostrum_proc_metrics_get_trans_queued,
    ostrum_proc_metrics_get_trans_max,
    ostrum_proc_metrics_get_ops_done_total,
    ostrum_proc_metrics_get_ops_error_total,
    ostrum_proc_metrics_get_trans_done_total,
    ostrum_proc_metrics_get_trans_error_total,
    ostrum_proc_metrics_get_fe_connects,
    ostrum_proc_metrics_get_fe_connects_total,
    ostrum_proc_metrics_get_fe_connects_error_total};

} // namespace

void read_locked_counters(rt_info* from, data_file& file)
{
    take_list([&](int32_t* count) { return ostrum_counters_get(from, 0, count); }, ostrum_counters_destroy,
              file.counters);
}

void read_locked_errors(rt_info* from, data_file& file)
{
    take_list([&](int32_t* count) { return ostrum_errors_get(from, 0, count); }, ostrum_errors_destroy,
              file.errors);
}

void read_locked_variables(rt_info* from, data_file& file)
{
    take_list([&](int32_t* count) { return ostrum_variables_get(from, nullptr, count); },
              ostrum_variables_destroy, file.variables);
}

void read_locked_metrics(rt_info* from, data_file& file)
{
    const std::unique_ptr<ostrum_proc_metrics, void (*)(ostrum_proc_metrics*)> record(
        ostrum_proc_metrics_get(from), ostrum_proc_metrics_destroy);
    if (!record) {
        throw input_error("the library gave no metrics");
    }
    for (size_t word = 0; word < metric_words; ++word) {
        file.metrics[word] = static_cast<uint64_t>(metrics_getters[word](record.get()));
    }
}

} // namespace ostrum_tool
