#ifndef OSTRUM_HOST_ACCESS_CORRELATION_H
#define OSTRUM_HOST_ACCESS_CORRELATION_H

extern "C" {
// The calling thread's correlation id; borrowed; "" where the host gives none.
const char* perf_get_correlation_id(void);
}

namespace ostrum {
// The same for a caller that can bear being cancelled in the host's service.
const char* correlation_without_guard();
} // namespace ostrum
#endif
