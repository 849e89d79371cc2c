#ifndef OSTRUM_TESTS_SUPPORT_FAKE_OS_H
#define OSTRUM_TESTS_SUPPORT_FAKE_OS_H
// Control of the operating-system seam in internal tests: the real calls run unless a test freezes the
// clock or asks for a fault. State is process-wide; reset() in every fixture.
#include <cstdint>
#include <functional>
#include <string>

namespace fake_os {

enum class call {
    allocate,
    open_file,
    read_file,
    write_file,
    seek_file,
    lock_range,
    reserve_blocks,
    map_shared,
    unmap,
    close_file,
    status_of_path,
    status_of_file,
    unlink_path,
    rename_path,
    wall_clock,
    local_time,
    resource_usage,
    wait_for_descriptors,
    install_signal_action,
    at_exit,
    at_fork_in_child,
    create_thread,
    create_thread_key,
    barrier,
    count_of_calls
};

void reset();

// The Nth call from now on (1 = the next) fails with this errno; with `and_after`, so do all later ones.
void fail(call which, int64_t nth, int error, bool and_after = false);
int64_t calls_made(call which); // since reset()

void freeze_clock(int64_t realtime_tv); // realtime_ns, wall_clock and wall_seconds all show it
void advance_clock(int64_t by_tv);
void freeze_monotonic(); // monotonic_ns moves on by sleeps, which take no time, and by this only:
void advance_monotonic(int64_t by_tv);
int64_t monotonic_tv();                                    // since freeze_monotonic()
void set_environment(const char* name, const char* value); // null value: unset; reset() forgets all
int64_t blocks_in_use();                                   // allocated and not yet released since reset()

// Runs the body with standard error going to a temporary file; returns what was written.
std::string captured_stderr(const std::function<void()>& body);

} // namespace fake_os
#endif
