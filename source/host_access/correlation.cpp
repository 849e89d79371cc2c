#include "host_access/correlation.h"

#include "host_access/bindings.h"

const char* perf_get_correlation_id(void)
{
    using namespace ostrum;
    const auto service = ostrum::host_service(&ostrum::host_bindings::get_correlation);
    const char* id = service != nullptr ? service() : nullptr;
    return id != nullptr ? id : "";
}
