#ifndef OSTRUM_UTIL_SIGNAL_SAFE_SCOPE_H
#define OSTRUM_UTIL_SIGNAL_SAFE_SCOPE_H

namespace ostrum {

// While one lives, this thread's local times and diagnostic lines take no lock and no heap: for signal
// handlers. Times outside the years that were looked up are UTC, long lines are cut.
class signal_safe_scope {
public:
    signal_safe_scope();
    ~signal_safe_scope();
    signal_safe_scope(const signal_safe_scope&) = delete;
    signal_safe_scope& operator=(const signal_safe_scope&) = delete;

private:
    bool was_safe_;
};
bool must_be_signal_safe();

} // namespace ostrum
#endif
