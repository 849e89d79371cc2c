#ifndef OSTRUM_PROCESS_METRICS_PROC_INFO_H
#define OSTRUM_PROCESS_METRICS_PROC_INFO_H
// A process with its children (of its main thread; not theirs in turn), sampled together.
#include "process_metrics/proc_stat.h"

namespace ostrum {
inline constexpr int32_t max_sampled_processes = 1024; // further children are left out
}

struct proc_info {
    int32_t count;                                    // records in use; 0 when the process is not there
    proc_stat records[ostrum::max_sampled_processes]; // the process itself, then its children
    proc_stat sum;
};

extern "C" {
void get_proc_info(int32_t pid, proc_info* out);

// What `current` shows, with the CPU times as differences to `last`: of a process that is not in `last`,
// its whole times. A filter other than 0 takes that process only. The result's pid is 0.
proc_stat proc_info_diff(const proc_info* last, const proc_info* current, int32_t pid_filter);
}
#endif
