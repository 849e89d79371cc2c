#include "perf_log/operation/timeout_nesting.h"

#include "process_state/process_state.h"
#include "process_state/signals.h"

namespace ostrum {

namespace {
constinit uint32_t nesting_word = 0;
constinit int32_t counting_process = 0; // in a forked child the parent's count means nothing
} // namespace

uint32_t& timeout_nesting_word()
{
    return nesting_word;
}

timeout_nesting_scope::timeout_nesting_scope() : on_main_thread_(is_main_thread())
{
    if (!on_main_thread_) {
        return;
    }
    if (counting_process != process_id()) {
        counting_process = process_id();
        nesting_word = 0;
    }
    ++nesting_word;
}

timeout_nesting_scope::~timeout_nesting_scope()
{
    if (!on_main_thread_) {
        return;
    }
    --nesting_word;
    if ((nesting_word & nesting_count_mask) == 0 && (nesting_word & timeout_deferred) != 0 &&
        (nesting_word & timeout_running) == 0) {
        __ostrum_sig_safe_exec_callback("write_log");
    }
}

} // namespace ostrum
