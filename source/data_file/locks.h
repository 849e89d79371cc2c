#ifndef OSTRUM_DATA_FILE_LOCKS_H
#define OSTRUM_DATA_FILE_LOCKS_H
// The locks of the data file. Order: the table lock (type 2), then one entry's lock; nothing else is
// taken inside either, and no host call is made there. lock_slot_acquire, lock_slot_release and the
// initialisation of slots alone look at the lock method ("ostrum_lock_method").
//
// Mutex method: a process-shared mutex in the slot excludes the threads of all processes. It may be
// re-initialised by a process that starts while others wait (they lose the wake-up), stay held by a
// process that died, or be no mutex at all; so it is waited for in short slices and not for ever.
//
// Advisory method: a record lock on the file, through the descriptor number and the offset that the slot
// holds, which are those of the process that initialised it. Record locks belong to a process: its own
// threads do not exclude one another. Failures go unnoticed (kept: the lock counts as obtained).
#include <cstdint>

#include "data_file/data_file.h"
#include "util/time_value.h"

enum data_file_lock_type : int32_t {
    DATA_FILE_LOCK_TRACE = 0,    // appending to and rotating the shared trace file
    DATA_FILE_LOCK_ALARM = 1,    // the same of the shared alarm file
    DATA_FILE_LOCK_TABLES = 2,   // counters, errors, variables: search, insert, counts, copies
    DATA_FILE_LOCK_CONTEXTS = 3, // initialised, not used through the file
    DATA_FILE_LOCK_METRICS = 4   // process metrics area
};

extern "C" {
// Blocking write lock on 64 bytes at the offset, repeated while interrupted. 0, or -1 with errno set.
// `name` is unused.
int32_t __ostrum_file_lock(int32_t fd, int64_t offset, const char* name);
int32_t __ostrum_file_unlock(int32_t fd, int64_t offset, const char* name);

// One of the five header locks, for a caller that cannot use data_file_guard. Lock and unlock on the same
// thread; an unlock after a lock that was not obtained does nothing. An invalid type is reported (by both
// in the same words) and nothing is locked; a null handle is ignored. Kept on purpose: nothing here calls
// them.
void __perf_data_file_lock(rt_info* handle, int32_t type);
void __perf_data_file_unlock(rt_info* handle, int32_t type);
}

namespace ostrum {

// How long a lock of the mutex method is waited for in all before it counts as stuck.
inline constexpr int64_t table_lock_limit_tv = tv_per_s;
inline constexpr int64_t file_lock_limit_tv = 10 * tv_per_s;
// An entry's lock inside the table lock. A dead one is waited for by one process after the other: all of
// them together should take less than the time after which others give the table lock up, and each less than
// a process that starts waits before it initialises the table lock again.
inline constexpr int64_t nested_lock_limit_tv = 80 * tv_per_ms;

// False: not locked (unusable bytes, or stuck); the caller leaves its update out. With a limit of 0 the
// lock is only tried. errno is preserved.
[[nodiscard]] bool lock_slot_acquire(lock_slot& slot, int64_t limit_tv);
void lock_slot_release(lock_slot& slot);

// Prepare locks for use, whatever state they are in. The handle's mapping and descriptor must be set, a
// name is a constant. The header locks of a file that others may be using are tried for first: one that
// can be had works, and nobody who holds or waits for it is disturbed.
void initialise_header_locks(rt_info& handle, bool in_use);
void initialise_entry_lock(rt_info& handle, lock_slot& slot, const char* name);
// Under the table lock: initialises the lock of an entry that was made while the other method was in use.
void initialise_entry_lock_if_unset(rt_info& handle, lock_slot& slot, const char* name);

// The lock for one scope. Test it: nothing may be written when it was not obtained.
class slot_guard {
public:
    explicit slot_guard(lock_slot& slot, int64_t limit_tv = table_lock_limit_tv)
        : slot_(slot), held_(lock_slot_acquire(slot, limit_tv))
    {}
    ~slot_guard()
    {
        if (held_) {
            lock_slot_release(slot_);
        }
    }
    slot_guard(const slot_guard&) = delete;
    slot_guard& operator=(const slot_guard&) = delete;
    explicit operator bool() const { return held_; }

private:
    lock_slot& slot_;
    bool held_;
};

// As slot_guard, for one of the five header locks; a null handle is never obtained.
class data_file_guard {
public:
    data_file_guard(rt_info* handle, data_file_lock_type type);
    ~data_file_guard();
    data_file_guard(const data_file_guard&) = delete;
    data_file_guard& operator=(const data_file_guard&) = delete;
    explicit operator bool() const { return held_; }

private:
    lock_slot* slot_;
    bool held_;
};

// The locks of many entries, one after the other, inside the table lock. They share one waiting time, so
// that the table lock is never held for long; a lock that is known to be stuck takes nothing of it.
class entry_lock_pass {
public:
    // Runs the body with true when the entry's lock is held, else with false.
    template <typename Body>
    void with(lock_slot& slot, Body body)
    {
        const bool held = acquire(slot);
        body(held);
        if (held) {
            lock_slot_release(slot);
        }
    }

private:
    bool acquire(lock_slot& slot);

    int64_t left_tv_ = nested_lock_limit_tv;
};

} // namespace ostrum
#endif
