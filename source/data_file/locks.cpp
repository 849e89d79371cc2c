#include "data_file/locks.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "config/settings.h"
#include "data_file/shared_mutex.h"
#include "data_file/stuck_locks.h"
#include "os/os_calls.h"
#include "util/diagnostics.h"
#include "util/errno_keeper.h"
#include "util/look_until.h"

namespace ostrum {

namespace {

constexpr int64_t slice_tv = 20 * tv_per_ms;
constexpr int64_t locked_bytes = 64;
constexpr std::array header_lock_names{"trace_file_mutex", "alarm_file_mutex", "rt_structs_mutex",
                                       "lip_list_mutex", "process_metrics_mutex"};
static_assert(header_lock_names.size() == header_lock_count &&
              DATA_FILE_LOCK_METRICS + 1 == header_lock_count);

bool advisory_method()
{
    return configured().locks == lock_method::advisory_file_lock;
}

int32_t apply_record_lock(int32_t fd, int64_t offset, int command, short type)
{
    while (os::lock_range(fd, command, type, offset, locked_bytes) != 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return 0;
}

// Looked at again: another process may be initialising it, which passes through other kinds.
bool becomes_usable(const pthread_mutex_t& mutex)
{
    return look_until(3, tv_per_ms, [&mutex] { return usable(mutex); });
}

// Slices: the holder's wake-up is lost when the mutex is re-initialised meanwhile.
bool wait_for_mutex(lock_slot& slot, int64_t limit_tv)
{
    if (limit_tv <= 0 || counts_as_stuck(slot)) {
        return false;
    }
    const errno_keeper keeper;
    const int64_t deadline_tv = os::monotonic_ns() + limit_tv;
    for (int64_t left_tv = limit_tv; left_tv > 0 && becomes_usable(slot.mutex);
         left_tv = deadline_tv - os::monotonic_ns()) {
        if (os::lock_mutex_within(slot.mutex, std::min(slice_tv, left_tv)) == 0) {
            return true;
        }
    }
    remember_stuck(slot);
    return false;
}

[[gnu::always_inline]] inline bool acquire_mutex(lock_slot& slot, int64_t limit_tv)
{
    if (usable(slot.mutex) && pthread_mutex_trylock(&slot.mutex) == 0) [[likely]] {
        forget_stuck(slot);
        return true;
    }
    return wait_for_mutex(slot, limit_tv);
}

void initialise_slot(const rt_info& handle, lock_slot& slot, const char* name,
                     const shared_mutex_attributes& attributes)
{
    if (advisory_method()) {
        slot.fd = static_cast<uint32_t>(handle.fd);
        slot.offset = reinterpret_cast<const char*>(&slot) - reinterpret_cast<const char*>(handle.image);
    } else {
        pthread_mutex_init(&slot.mutex, attributes.get());
    }
    slot.name = name;
}

// Long enough for whoever inserts into a table; the trace file's locks may be held for seconds.
int64_t initialisation_wait(size_t header_lock)
{
    return header_lock == DATA_FILE_LOCK_TABLES ? 100 * tv_per_ms : 0;
}

void initialise_used_header_lock(rt_info& handle, size_t index, const shared_mutex_attributes& attributes)
{
    lock_slot& slot = handle.image->locks[index];
    const bool works = !advisory_method() && acquire_mutex(slot, initialisation_wait(index));
    if (works) {
        slot.name = header_lock_names[index];
        pthread_mutex_unlock(&slot.mutex);
        return;
    }
    initialise_slot(handle, slot, header_lock_names[index], attributes);
    forget_stuck(slot);
}

// Whether the method in use has never initialised the slot.
bool unset(const lock_slot& slot)
{
    if (advisory_method()) {
        return slot.offset == 0;
    }
    const auto* bytes = reinterpret_cast<const char*>(&slot.mutex);
    return std::all_of(bytes, bytes + sizeof slot.mutex, [](char byte) { return byte == 0; });
}

int64_t header_lock_limit(int32_t type)
{
    return type <= DATA_FILE_LOCK_ALARM ? file_lock_limit_tv : table_lock_limit_tv;
}

// Null for a null handle and, after the diagnostic line, for an invalid type.
lock_slot* header_slot(rt_info* handle, int32_t type)
{
    if (type < 0 || static_cast<size_t>(type) >= header_lock_names.size()) {
        err_print("__perf_data_file_lock: invalid lock-type[%d]\n", type); // kept: unlock says "lock" too
        return nullptr;
    }
    return handle != nullptr ? &handle->image->locks[type] : nullptr;
}

// What __perf_data_file_lock obtained on this thread, by type: only that may be unlocked.
thread_local std::array<lock_slot*, header_lock_names.size()> obtained_slots{};

} // namespace

bool lock_slot_acquire(lock_slot& slot, int64_t limit_tv)
{
    if (!advisory_method()) {
        return acquire_mutex(slot, limit_tv);
    }
    const errno_keeper keeper;
    (void)__ostrum_file_lock(static_cast<int32_t>(slot.fd), slot.offset, slot.name);
    return true; // kept: with this method a lock that fails goes unnoticed
}

void lock_slot_release(lock_slot& slot)
{
    if (!advisory_method()) {
        if (usable(slot.mutex)) {
            pthread_mutex_unlock(&slot.mutex);
        }
        return;
    }
    const errno_keeper keeper;
    (void)__ostrum_file_unlock(static_cast<int32_t>(slot.fd), slot.offset, slot.name);
}

void initialise_header_locks(rt_info& handle, bool in_use)
{
    const shared_mutex_attributes attributes;
    for (size_t i = 0; i < header_lock_names.size(); ++i) {
        if (in_use) {
            initialise_used_header_lock(handle, i, attributes);
        } else {
            initialise_slot(handle, handle.image->locks[i], header_lock_names[i], attributes);
        }
    }
}

void initialise_entry_lock(rt_info& handle, lock_slot& slot, const char* name)
{
    const shared_mutex_attributes attributes;
    initialise_slot(handle, slot, name, attributes);
}

void initialise_entry_lock_if_unset(rt_info& handle, lock_slot& slot, const char* name)
{
    if (unset(slot)) {
        initialise_entry_lock(handle, slot, name);
    }
}

bool entry_lock_pass::acquire(lock_slot& slot)
{
    if (lock_slot_acquire(slot, 0)) {
        return true;
    }
    const int64_t start_tv = os::monotonic_ns();
    const bool held = lock_slot_acquire(slot, left_tv_);
    left_tv_ = std::max<int64_t>(left_tv_ - (os::monotonic_ns() - start_tv), 0);
    return held;
}

data_file_guard::data_file_guard(rt_info* handle, data_file_lock_type type)
    : slot_(header_slot(handle, type)),
      held_(slot_ != nullptr && lock_slot_acquire(*slot_, header_lock_limit(type)))
{}

data_file_guard::~data_file_guard()
{
    if (held_) {
        lock_slot_release(*slot_);
    }
}

} // namespace ostrum

int32_t __ostrum_file_lock(int32_t fd, int64_t offset, const char* /*name*/)
{
    return ostrum::apply_record_lock(fd, offset, F_SETLKW, F_WRLCK);
}

int32_t __ostrum_file_unlock(int32_t fd, int64_t offset, const char* /*name*/)
{
    return ostrum::apply_record_lock(fd, offset, F_SETLK, F_UNLCK);
}

void __perf_data_file_lock(rt_info* handle, int32_t type)
{
    ostrum::lock_slot* slot = ostrum::header_slot(handle, type);
    if (slot != nullptr && ostrum::lock_slot_acquire(*slot, ostrum::header_lock_limit(type))) {
        ostrum::obtained_slots[static_cast<size_t>(type)] = slot;
    }
}

void __perf_data_file_unlock(rt_info* handle, int32_t type)
{
    ostrum::lock_slot* slot = ostrum::header_slot(handle, type);
    if (slot != nullptr && ostrum::obtained_slots[static_cast<size_t>(type)] == slot) {
        ostrum::obtained_slots[static_cast<size_t>(type)] = nullptr;
        ostrum::lock_slot_release(*slot);
    }
}
