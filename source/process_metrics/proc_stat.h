#ifndef OSTRUM_PROCESS_METRICS_PROC_STAT_H
#define OSTRUM_PROCESS_METRICS_PROC_STAT_H
// One process as the Linux process file system shows it. Sampling runs in a signal handler too: it uses
// neither stdio nor the heap, and little stack.
#include <cstdint>

struct proc_stat {
    int32_t pid;       // 0: the sample failed, or a sum
    int64_t utime;     // ns of user CPU time
    int64_t stime;     // ns of system CPU time
    int32_t processes; // 1, or a count in sums
    int32_t threads;
    int64_t vsize; // bytes
    int64_t rss;   // bytes
};

extern "C" {
// Samples a process; all zero when it is not there or, after one diagnostic line, when its line cannot be
// read. A command name with a blank in it counts as such a line (kept).
proc_stat get_proc_stat(int32_t pid, int64_t ticks_per_second, int64_t page_bytes);

// Debug line, for a sample with a process id.
void print_ps(const proc_stat* sample, const char* label);
}
#endif
