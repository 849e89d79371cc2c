#ifndef OSTRUM_HOST_ACCESS_BINDINGS_H
#define OSTRUM_HOST_ACCESS_BINDINGS_H
// The thirteen replaceable entries through which the host's services are called. An entry holds a
// substitute or null; with null the host's own service is called, and without a host the helper falls
// back as each says. Written once at start-up (and by tests), read without a lock.
#include "host_abi/host_services.h"
#include "os/no_cancellation.h"

#include <type_traits>

namespace ostrum {

struct host_bindings {
    decltype(&tbx_opcode_to_opname) opcode_to_opname;
    decltype(&tbx_opname_to_opcode) opname_to_opcode;
    decltype(&qel_flist_to_str_masked) flist_to_str_masked;
    decltype(&qel_flist_elem_count) flist_elem_count;
    decltype(&qel_flist_elem_add) flist_elem_add;
    decltype(&qeli_flist_get) flist_get;
    decltype(&qeli_flist_set) flist_set;
    decltype(&qeli_flist_put) flist_put;
    decltype(&qel_errbuf_sprint) errbuf_sprint;
    decltype(&qellog_get_correlation) get_correlation;
    decltype(&qel_flist_copy) flist_copy;
    decltype(&qel_flist_destroy) flist_destroy;
    decltype(&qel_flist_create) flist_create;
};

host_bindings& bound_host_services();
// What the platform of this process provides itself; all null without one.
const host_bindings& own_host_services();

// Binds every entry to the host's service, in the order above, each with a debug line under 0x2.
void bind_host_services();

// The service to call for an entry: the substitute, else the host's own, else null.
template <typename Function>
Function* host_service(Function* host_bindings::*entry)
{
    Function* const substitute = bound_host_services().*entry;
    return substitute != nullptr ? substitute : own_host_services().*entry;
}

// Calls a service that may be missing, which then answers 0, null or nothing. The thread is not cancelled
// in it.
template <typename Result, typename... Arguments>
Result call_if_present(Result (*service)(Arguments...), std::type_identity_t<Arguments>... arguments)
{
    const os::no_cancellation guard;
    return service != nullptr ? service(arguments...) : Result();
}

template <typename Result, typename... Arguments>
Result call_host(Result (*host_bindings::*entry)(Arguments...), std::type_identity_t<Arguments>... arguments)
{
    return call_if_present(host_service(entry), arguments...);
}

} // namespace ostrum
#endif
