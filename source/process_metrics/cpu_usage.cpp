#include "process_metrics/cpu_usage.h"

#include "os/os_calls.h"

namespace {

int64_t as_tv(const timeval& time)
{
    return static_cast<int64_t>(time.tv_sec) * 1'000'000'000 + static_cast<int64_t>(time.tv_usec) * 1'000;
}

} // namespace

void get_cpu_usage(int64_t* user_tv, int64_t* sys_tv)
{
    rusage usage{};
    if (ostrum::os::resource_usage(usage) == 0) {
        *user_tv = as_tv(usage.ru_utime);
        *sys_tv = as_tv(usage.ru_stime);
    }
}
