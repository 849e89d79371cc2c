#include "perf_log/flush/flush.h"

#include "perf_log/output/trace_file.h"

int32_t flush_aggregation_tree(ostrum::log_context* context)
{
    if (context->from_fork) {
        return 0; // a hook that was in progress at the fork goes on in the child; the data are the parent's
    }
    return flush_aggregation_tree_to_file(&context->trace, context->trace.tree);
}
