#include "process_metrics/cpu_usage.h"

#include "os/os_calls.h"
#include "util/time_value.h"

void get_cpu_usage(int64_t* user_tv, int64_t* sys_tv)
{
    rusage usage{};
    if (ostrum::os::resource_usage(usage) == 0) {
        *user_tv = ostrum::tv_of(usage.ru_utime);
        *sys_tv = ostrum::tv_of(usage.ru_stime);
    }
}
