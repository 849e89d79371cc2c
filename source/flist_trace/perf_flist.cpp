#include "flist_trace/perf_flist.h"

#include <cstdio>
#include <unistd.h>

#include "host_abi/host_fields.h"
#include "host_access/bindings.h"
#include "host_access/error_buffer.h"
#include "host_access/flist.h"
#include "host_access/host_memory.h"
#include "host_access/opcode_names.h"
#include "perf_log/aggregation/agg_node.h"
#include "util/diagnostics.h"
#include "util/guarded_write.h"
#include "util/time_value.h"

using namespace ostrum;

namespace {

constexpr int32_t only_element = 0; // of a field that is no array
constexpr int32_t time_places = 9;

// Stores fields in one element; the host collects errors in one buffer.
class element_writer {
public:
    element_writer(qel_flist_t* element, qel_errbuf_t& eb) : element_(element), eb_(eb) {}

    void set_number(uint32_t field, int32_t value)
    {
        p_flist_fld_set(element_, field, only_element, &value, &eb_);
    }
    void set_text(uint32_t field, const char* value)
    {
        p_flist_fld_set(element_, field, only_element, value, &eb_);
    }
    void put_count(uint32_t field, int64_t value)
    {
        put_decimal(field, call_if_present(nmu_decimal_from_double, static_cast<double>(value), &eb_));
    }
    void put_seconds(uint32_t field, int64_t value_tv)
    {
        auto* seconds = static_cast<nmu_decimal_t*>(ostrum_tv_to_decimal(value_tv));
        if (seconds != nullptr) {
            call_if_present(nmu_decimal_round_assign, seconds, time_places, NMU_ROUND_NEAREST, &eb_);
        }
        put_decimal(field, seconds);
    }

private:
    void put_decimal(uint32_t field, nmu_decimal_t* value)
    {
        if (value != nullptr) {
            p_flist_fld_put(element_, field, only_element, value, &eb_);
        }
    }

    qel_flist_t* element_;
    qel_errbuf_t& eb_;
};

void fill_element(qel_flist_t* element, const agg_node& node, qel_errbuf_t& eb)
{
    element_writer writer(element, eb);
    writer.set_number(perf_opcode_field, node.opcode);
    writer.set_text(perf_opname_field, name_of(node.opname, node.opcode));
    writer.set_text(perf_program_field, node.program);
    writer.set_text(perf_obj_type_field, node.obj_type);
    writer.set_text(perf_fname_field, node.fname);
    writer.set_number(perf_lineno_field, node.lineno);
    writer.set_number(perf_flags_field, node.flags);
    writer.put_seconds(perf_total_field, node.main.total_tv);
    writer.put_count(perf_calls_field, node.main.total_calls);
    writer.put_count(perf_errors_field, node.main.total_errors);
    writer.put_count(perf_recs_field, node.main.total_recs);
    writer.put_seconds(perf_user_cpu_field, node.main.user_cpu_tv);
    writer.put_seconds(perf_sys_cpu_field, node.main.sys_cpu_tv);
}

void debug_element(qel_flist_t* element)
{
    qel_errbuf_t eb{};
    char* text = nullptr;
    int32_t length = 0;
    p_flist_to_str(element, &text, &length, &eb);
    debug_print("build_perf_flist: single opcode trace output len[%d] ebufp[%p](%d):\n%s", length,
                static_cast<void*>(&eb), static_cast<int>(eb.errnum), text != nullptr ? text : "ERROR\n");
    release_host_memory(text);
}

bool report_failure(qel_errbuf_t& eb)
{
    char text[error_text_bytes];
    err_print("build_perf_flist : failed - %s\n", get_ebuf_str(&eb, text));
    return false;
}

bool add_element(const agg_node& node, qel_flist_t* list, bool show)
{
    qel_errbuf_t eb{};
    const int32_t next = p_flist_elem_count(list, perf_nodes_field, &eb);
    qel_flist_t* element = p_flist_elem_add(list, perf_nodes_field, next, &eb);
    if (element == nullptr) {
        return report_failure(eb);
    }
    fill_element(element, node, eb);
    if (eb.errnum != 0) {
        return report_failure(eb);
    }
    if (node.sub_opcode_tree != nullptr &&
        bt_walk(node.sub_opcode_tree, element, build_perf_flist) != BT_CONTINUE) {
        return false; // reported below
    }
    if (show) {
        debug_element(element);
    }
    return true;
}

void show_list(qel_flist_t* list)
{
    static constexpr char title[] = "flist for opcode with no output flist:\n";
    os::flush_stream(stdout);
    write_all_guarded(STDOUT_FILENO, title, sizeof(title) - 1);
    print_flist(stdout, list);
}

} // namespace

int32_t build_perf_flist(void* node, void* flist, int32_t single)
{
    if (flist == nullptr) {
        err_print("build_perf_flist: flist ptr is NULL\n");
        return 0;
    }
    const bool show = single == 1 && debug_on(debug_general);
    return add_element(*static_cast<const agg_node*>(node), static_cast<qel_flist_t*>(flist), show) ? 1 : 0;
}

void ostrum::return_perf_flist(bt_tree* tree, void* out_flist)
{
    qel_errbuf_t eb{};
    qel_flist_t* list = p_flist_create(&eb);
    bt_walk(tree, list, build_perf_flist);
    if (out_flist != nullptr && list != nullptr) {
        // The host takes the list over even when it cannot store it.
        p_flist_fld_put(static_cast<qel_flist_t*>(out_flist), perf_flist_field, only_element, list, &eb);
        return;
    }
    if (out_flist == nullptr && debug_on(debug_general)) {
        show_list(list);
    }
    flist_destroy(list);
}
