#include "host_access/bindings.h"

#include "util/diagnostics.h"

namespace ostrum {

namespace {

constinit host_bindings substitutes{};

// The addresses are known once the process is loaded; null where no platform is.
const host_bindings own_services = {
    .opcode_to_opname = &tbx_opcode_to_opname,
    .opname_to_opcode = &tbx_opname_to_opcode,
    .flist_to_str_masked = &qel_flist_to_str_masked,
    .flist_elem_count = &qel_flist_elem_count,
    .flist_elem_add = &qel_flist_elem_add,
    .flist_get = &qeli_flist_get,
    .flist_set = &qeli_flist_set,
    .flist_put = &qeli_flist_put,
    .errbuf_sprint = &qel_errbuf_sprint,
    .get_correlation = &qellog_get_correlation,
    .flist_copy = &qel_flist_copy,
    .flist_destroy = &qel_flist_destroy,
    .flist_create = &qel_flist_create,
};

template <typename Function>
void bind(Function host_bindings::*entry, const char* service_name)
{
    substitutes.*entry = own_services.*entry;
    if (debug_on(debug_detail)) {
        // prefix kept
        debug_print("initialize_function_pointers : %s=%p\n", service_name,
                    reinterpret_cast<void*>(substitutes.*entry));
    }
}

} // namespace

host_bindings& bound_host_services()
{
    return substitutes;
}

const host_bindings& own_host_services()
{
    return own_services;
}

void bind_host_services()
{
    bind(&host_bindings::opcode_to_opname, "tbx_opcode_to_opname");
    bind(&host_bindings::opname_to_opcode, "tbx_opname_to_opcode");
    bind(&host_bindings::flist_to_str_masked, "qel_flist_to_str_masked");
    bind(&host_bindings::flist_elem_count, "qel_flist_elem_count");
    bind(&host_bindings::flist_elem_add, "qel_flist_elem_add");
    bind(&host_bindings::flist_get, "qeli_flist_get");
    bind(&host_bindings::flist_set, "qeli_flist_set");
    bind(&host_bindings::flist_put, "qeli_flist_put");
    bind(&host_bindings::errbuf_sprint, "qel_errbuf_sprint");
    bind(&host_bindings::get_correlation, "qellog_get_correlation");
    bind(&host_bindings::flist_copy, "qel_flist_copy");
    bind(&host_bindings::flist_destroy, "qel_flist_destroy");
    bind(&host_bindings::flist_create, "qel_flist_create");
}

} // namespace ostrum
