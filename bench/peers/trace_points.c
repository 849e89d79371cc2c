/* A module of its own: the recorder's library starts threads in every process that it is linked to. */
#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#define LTTNG_UST_TRACEPOINT_DEFINE
#include "trace_points.h"

int tracing_is_on(void)
{
    return lttng_ust_tracepoint_enabled(ostrum_bench, operation_start) &&
           lttng_ust_tracepoint_enabled(ostrum_bench, operation_end);
}

void trace_pair(uint32_t opcode, const char* name, const char* file, int32_t line, const char* obj_type)
{
    lttng_ust_tracepoint(ostrum_bench, operation_start, opcode, name, file, line, obj_type, 1, 1);
    lttng_ust_tracepoint(ostrum_bench, operation_end, opcode, 0);
}
