#ifndef OSTRUM_PROCESS_METRICS_CPU_USAGE_H
#define OSTRUM_PROCESS_METRICS_CPU_USAGE_H
#include <cstdint>

namespace ostrum {

struct cpu_times { // ns
    int64_t user_tv = 0;
    int64_t sys_tv = 0;
};

} // namespace ostrum

extern "C" {
// User and system CPU time of the whole process, in nanoseconds; the outputs stay as they are when the
// system cannot tell. A system call: for levels whose CPU time is asked for only.
void get_cpu_usage(int64_t* user_tv, int64_t* sys_tv);
}
#endif
