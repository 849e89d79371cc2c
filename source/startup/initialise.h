#ifndef OSTRUM_STARTUP_INITIALISE_H
#define OSTRUM_STARTUP_INITIALISE_H
// The one-time initialisation of the library in a process.
#include <cstdint>

extern "C" {
// Runs the initialisation unless it has run. The mode of the first caller (quiet or full) sticks, and
// concurrent first callers wait for the one that runs it. Returns 0 when initialised; -1 when that
// failed, or when this very thread is in the middle of it (a host service that calls a hook). errno is
// preserved.
int32_t __ostrum_init(int32_t quiet);

// The initialisation itself, in the decided mode. Run by __ostrum_init() only.
void initialise_ostrum(void);

// The part common to both modes: identity, debug bits, banner, host services, lock method. Returns 0, or
// 1 for a bad lock method. The first argument is not used (kept on purpose).
int32_t perf_common_init(const void* ignored, int32_t quiet);

// The set-up of logging: every setting, the data file, the handlers. Returns 0, or -1 at the first step
// that fails, after its diagnostic lines.
int32_t perf_log_init(void);
}
#endif
