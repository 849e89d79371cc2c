#ifndef OSTRUM_UTIL_LOCAL_TIME_H
#define OSTRUM_UTIL_LOCAL_TIME_H
#include <cstdint>
#include <ctime>

namespace ostrum {

// Broken-down local time; false when the system cannot tell.
bool local_fields(time_t seconds, tm& fields);

// While one lives, this thread's local times and diagnostic lines take neither a lock nor the heap: for
// signal handlers. Times are shown in the time zone of start-up, long lines are cut.
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
void remember_time_zone(); // once, at start-up

} // namespace ostrum
#endif
