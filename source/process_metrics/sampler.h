#ifndef OSTRUM_PROCESS_METRICS_SAMPLER_H
#define OSTRUM_PROCESS_METRICS_SAMPLER_H
// Samples of this process and its children, at most one per status check interval: the two last ones, and
// what happened between them.
#include <cstdint>

#include "data_file/layout.h"

extern "C" {
// Fills words 1 to 6 of the record with the CPU time used since the last sample and the present memory,
// children and threads, and sets *updated (null allowed) to 1. The record is all zero, and *updated 0,
// while collection is off, before the interval has passed, and while another thread is sampling.
void ostrum_get_process_data(ostrum::process_metrics_area* out, int32_t* updated);

// Handler of SIGHUP: samples and publishes in the process's own data file.
void ostrum_get_proc_data(int signal_number);
}

namespace ostrum {

// Makes the sampler the handler of SIGHUP when the setting asks for both, sampling and the handler.
void install_sampler_when_asked();
void renew_sampler_after_fork(); // child: a sample that another thread was taking is nobody's any more

} // namespace ostrum
#endif
