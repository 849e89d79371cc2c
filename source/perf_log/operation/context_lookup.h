#ifndef OSTRUM_PERF_LOG_OPERATION_CONTEXT_LOOKUP_H
#define OSTRUM_PERF_LOG_OPERATION_CONTEXT_LOOKUP_H
// Which context a hook works on, and holding it for the length of the hook.
#include <cstdint>

#include "perf_log/context/log_context.h"

namespace ostrum {

// The context that a _key hook names.
struct context_name {
    int32_t pid;
    int32_t key;
};

// A context found or made for one hook, locked until the end of the scope. Without a name, or with one
// that has no context, it is the calling thread's own. Empty when there is none to be had: logging is
// disabled, memory is short, or the process has begun to exit. Brings the library up when nothing has.
class locked_context {
public:
    explicit locked_context(const context_name* name);
    ~locked_context();
    locked_context(const locked_context&) = delete;
    locked_context& operator=(const locked_context&) = delete;

    explicit operator bool() const { return context_ != nullptr; }
    log_context& operator*() const { return *context_; }
    log_context* operator->() const { return context_; }

private:
    log_context* context_ = nullptr;
    bool pinned_ = false; // found without a slot or cache entry that would keep it
};

} // namespace ostrum

extern "C" {
// The calling thread's own context (key -1) or that of (this process, key), made on first use; null when
// there is none to be had. Not locked; stays with the library.
ostrum::log_context* __ostrum_get_liptr(int32_t key);
ostrum::log_context* __ostrum_get_liptr_by_key(int32_t pid, int32_t key);
void __ostrum_release_liptr_by_key(int32_t pid, int32_t key);
}
#endif
