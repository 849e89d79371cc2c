#include "host_access/correlation.h"

#include "host_access/bindings.h"

const char* perf_get_correlation_id(void)
{
    const char* id = ostrum::call_host(&ostrum::host_bindings::get_correlation);
    return id != nullptr ? id : "";
}
