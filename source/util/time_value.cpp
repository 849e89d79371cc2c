#include "util/time_value.h"

#include "host_abi/host_services.h"
#include "os/os_calls.h"

uint64_t linux_gethrtime()
{
    return static_cast<uint64_t>(ostrum::os::realtime_ns());
}

int64_t ostrum_now_tv()
{
    return ostrum::os::realtime_ns();
}

double ostrum_tv_to_double(int64_t tv)
{
    return static_cast<double>(tv) / static_cast<double>(ostrum::tv_per_s);
}

void* ostrum_tv_to_decimal(int64_t tv)
{
    if (nmu_decimal_from_double == nullptr) {
        return nullptr;
    }
    qel_errbuf_t outcome_ignored{};
    return nmu_decimal_from_double(ostrum_tv_to_double(tv), &outcome_ignored);
}
