/* The tracepoints of an event recorder: what the operation hooks take, as fields of an event. The header is
 * read several times over, by the recorder's macros. */
#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER ostrum_bench

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "./trace_points.h"

#if !defined(OSTRUM_BENCH_PEERS_TRACE_POINTS_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define OSTRUM_BENCH_PEERS_TRACE_POINTS_H

#include <stdint.h>

#include <lttng/tracepoint.h>

/* clang-format off */
LTTNG_UST_TRACEPOINT_EVENT(
    ostrum_bench, operation_start,
    LTTNG_UST_TP_ARGS(uint32_t, opcode, const char*, name, const char*, file, int32_t, line,
                      const char*, obj_type, int64_t, obj_id, int64_t, db),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_integer(uint32_t, opcode, opcode)
        lttng_ust_field_string(name, name)
        lttng_ust_field_string(file, file)
        lttng_ust_field_integer(int32_t, line, line)
        lttng_ust_field_string(obj_type, obj_type)
        lttng_ust_field_integer(int64_t, obj_id, obj_id)
        lttng_ust_field_integer(int64_t, db, db)))

LTTNG_UST_TRACEPOINT_EVENT(
    ostrum_bench, operation_end,
    LTTNG_UST_TP_ARGS(uint32_t, opcode, uint32_t, errnum),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_integer(uint32_t, opcode, opcode)
        lttng_ust_field_integer(uint32_t, errnum, errnum)))
/* clang-format on */

#endif

#include <lttng/tracepoint-event.h>
