#include "perf_log/operation/timeout_nesting.h"

#include "process_state/signals.h"

namespace ostrum {

void run_deferred_timeout()
{
    __ostrum_sig_safe_exec_callback("write_log");
}

} // namespace ostrum
