#include "host_access/correlation.h"

#include "host_access/bindings.h"
#include "util/text.h"

const char* perf_get_correlation_id(void)
{
    const char* id = ostrum::call_host(&ostrum::host_bindings::get_correlation);
    return ostrum::text_or_empty(id);
}

const char* ostrum::correlation_without_guard()
{
    const auto service = host_service(&host_bindings::get_correlation);
    const char* id = service != nullptr ? service() : nullptr;
    return ostrum::text_or_empty(id);
}
