#include "perf_log/flush/flush.h"

#include "config/settings.h"
#include "perf_log/flush/flush_queue.h"
#include "perf_log/output/trace_file.h"

int32_t flush_aggregation_tree(ostrum::log_context* context)
{
    if (context->from_fork) {
        return 0; // a hook that was in progress at the fork goes on in the child; the data are the parent's
    }
    if (ostrum::configured().async_flushing) {
        return perf_async_flush_add_lip(&ostrum::process_flush_record(), &context->trace);
    }
    return flush_aggregation_tree_to_file(&context->trace, context->trace.tree);
}
