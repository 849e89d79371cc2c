#ifndef OSTRUM_PERF_LOG_OPERATION_HOOK_CALL_H
#define OSTRUM_PERF_LOG_OPERATION_HOOK_CALL_H
#include <cerrno>
#include <cstdint>

#include "os/os_calls.h"
#include "perf_log/operation/context_lookup.h"
#include "process_state/process_state.h"

namespace ostrum {

// What every hook does around its own work: the clock first, nothing when the thread is inside the
// library already, the context held meanwhile, errno as it was.
class hook_call {
public:
    explicit hook_call(const context_name* name)
        : error_(errno), saved_errno_(error_), now_tv_(os::realtime_ns()),
          held_(scope_.entered() ? enter_context(name) : held_context{})
    {}
    ~hook_call()
    {
        if (held_.context != nullptr) {
            leave_context(held_);
        }
        error_ = saved_errno_;
    }
    hook_call(const hook_call&) = delete;
    hook_call& operator=(const hook_call&) = delete;

    [[nodiscard]] int64_t now_tv() const { return now_tv_; }
    [[nodiscard]] log_context* context() const { return held_.context; } // null: nothing to do

private:
    int& error_;
    const int saved_errno_;
    const int64_t now_tv_;
    const library_scope scope_;
    const held_context held_;
};

} // namespace ostrum
#endif
