#include "perf_log/operation/write_log.h"

#include "os/os_calls.h"
#include "perf_log/operation/operation_end.h"
#include "perf_log/operation/operation_start.h"

void write_log(ostrum::log_context* context, const ostrum::op_event* event)
{
    ostrum::op_event timed = *event;
    if (timed.now_tv < 1) {
        timed.now_tv = ostrum::os::realtime_ns();
    }
    if (timed.phase == ostrum::op_phase::start) {
        ostrum::log_operation_start(*context, timed);
    } else {
        ostrum::log_operation_end(*context, timed);
    }
}
