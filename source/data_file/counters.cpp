#include "data_file/counters.h"

#include "data_file/locks.h"
#include "data_file/table_access.h"
#include "host_access/opcode_names.h"
#include "util/errno_keeper.h"
#include "util/resources.h"

namespace ostrum {

namespace {

constexpr const char* counter_lock_name = "counter_mutex";

struct counter_key {
    uint64_t opcode;
    uint64_t opflags;
    int64_t lineno;
    int64_t db_number;
    const char* opname;
    const char* program;
    const char* fname;
    const char* obj_type;
};

struct counter_totals {
    int64_t calls;
    int64_t errors;
    int64_t recs;
    int64_t total_tv;
    int64_t user_cpu_tv;
    int64_t sys_cpu_tv;
};

bool matches(const counter_entry& entry, const counter_key& key)
{
    return entry.opcode == key.opcode && entry.opflags == key.opflags && entry.lineno == key.lineno &&
           entry.db_number == key.db_number && holds_text(entry.program, key.program) &&
           holds_text(entry.fname, key.fname) && holds_text(entry.obj_type, key.obj_type) &&
           (key.opcode != 0 || holds_text(entry.opname, key.opname));
}

// Under the entry's lock.
inline void add_totals(counter_entry& entry, const counter_totals& totals)
{
    add_to_total(entry.recs, totals.recs);
    add_to_total(entry.calls, totals.calls);
    add_to_total(entry.errors, totals.errors);
    add_to_total(entry.total_t, totals.total_tv);
    add_to_total(entry.u_cpu_t, totals.user_cpu_tv);
    add_to_total(entry.s_cpu_t, totals.sys_cpu_tv);
}

// Under the entry's lock, or before the entry is in use.
void clear_totals(counter_entry& entry)
{
    for (uint64_t* total :
         {&entry.recs, &entry.calls, &entry.errors, &entry.total_t, &entry.u_cpu_t, &entry.s_cpu_t}) {
        store_total(*total, 0);
    }
}

[[gnu::always_inline]] inline void update(counter_entry& entry, const counter_totals& totals,
                                          int64_t lock_limit_tv)
{
    const slot_guard guard(entry.lock, lock_limit_tv);
    if (guard) {
        add_totals(entry, totals);
    }
}

// Under the table lock, with room left.
counter_entry* insert(rt_info& handle, size_t index, const counter_key& key, const char* stored_name,
                      const counter_totals& totals)
{
    counter_entry& entry = handle.image->counters[index];
    store_text(entry.opname, stored_name);
    store_text(entry.program, key.program);
    store_text(entry.fname, key.fname);
    store_text(entry.obj_type, key.obj_type);
    entry.opcode = key.opcode;
    entry.opflags = key.opflags;
    entry.lineno = key.lineno;
    entry.db_number = key.db_number;
    clear_totals(entry);
    add_totals(entry, totals);
    initialise_entry_lock(handle, entry.lock, counter_lock_name);
    publish_count(handle.image->counter_count, index + 1);
    return &entry;
}

std::span<counter_entry> entries_in_use(const rt_info& handle)
{
    return used_entries(handle.image->counters, handle.image->counter_count);
}

auto find(std::span<counter_entry> used, const counter_key& key)
{
    return std::find_if(used.begin(), used.end(),
                        [&key](const counter_entry& entry) { return matches(entry, key); });
}

// Calls that a full table has no room for come again and again: they look without the lock, which all hosts
// share.
bool is_left_out(const rt_info& handle, const counter_key& key)
{
    const auto used = entries_in_use(handle);
    return used.size() >= max_counters && find(used, key) == used.end();
}

counter_entry* find_or_insert(rt_info& handle, const counter_key& key, const char* stored_name,
                              const counter_totals& totals)
{
    if (is_left_out(handle, key)) {
        return nullptr;
    }
    const data_file_guard table(&handle, DATA_FILE_LOCK_TABLES);
    if (!table) {
        return nullptr;
    }
    const auto used = entries_in_use(handle);
    const auto found = find(used, key);
    if (found != used.end()) {
        initialise_entry_lock_if_unset(handle, found->lock, counter_lock_name);
        update(*found, totals, nested_lock_limit_tv);
        return &*found;
    }
    return used.size() >= max_counters ? nullptr : insert(handle, used.size(), key, stored_name, totals);
}

void terminate_texts(counter_entry& entry)
{
    terminate_text(entry.opname);
    terminate_text(entry.program);
    terminate_text(entry.fname);
    terminate_text(entry.obj_type);
}

} // namespace

} // namespace ostrum

using namespace ostrum;

counter_entry* rt_counter_add(rt_info* handle, int32_t opcode, const char* opname, uint32_t opflags,
                              int32_t lineno, const char* program, const char* fname, const char* obj_type,
                              int64_t db_number, int64_t calls, int64_t errors, int64_t recs, int64_t total_t,
                              int64_t u_cpu_t, int64_t s_cpu_t)
{
    if (handle == nullptr) {
        return nullptr;
    }
    const errno_keeper keeper;
    const counter_key key{static_cast<uint32_t>(opcode),
                          opflags,
                          lineno,
                          db_number,
                          text_or_empty(opname),
                          text_or_empty(program),
                          text_or_empty(fname),
                          text_or_empty(obj_type)};
    // The host is asked before any lock is taken. The search compares the caller's name, not this one, so
    // an empty name with opcode 0 inserts again at each add (kept).
    const char* stored_name = key.opname[0] != '\0' ? key.opname : get_opname(opcode, "");
    return find_or_insert(*handle, key, stored_name, {calls, errors, recs, total_t, u_cpu_t, s_cpu_t});
}

void rt_counter_update(counter_entry* entry, int64_t calls, int64_t errors, int64_t recs, int64_t total_t,
                       int64_t u_cpu_t, int64_t s_cpu_t)
{
    if (entry != nullptr) {
        update(*entry, {calls, errors, recs, total_t, u_cpu_t, s_cpu_t}, table_lock_limit_tv);
    }
}

void rt_counter_reset(counter_entry* entry)
{
    if (entry == nullptr) {
        return;
    }
    const slot_guard guard(entry->lock);
    if (guard) {
        clear_totals(*entry);
    }
}

void rt_counters_reset(rt_info* handle)
{
    const data_file_guard table(handle, DATA_FILE_LOCK_TABLES);
    if (!table) {
        return;
    }
    entry_lock_pass locks;
    for (counter_entry& entry : entries_in_use(*handle)) {
        locks.with(entry.lock, [&entry](bool held) {
            if (held) {
                clear_totals(entry);
            }
        });
    }
}

counter_entry* rt_counters_copy(rt_info* handle, int32_t reset, int32_t* count)
{
    report_count(count, 0);
    if (handle == nullptr) {
        return nullptr;
    }
    const errno_keeper keeper;
    const data_file_guard table(handle, DATA_FILE_LOCK_TABLES);
    const auto used = entries_in_use(*handle);
    heap_ptr<counter_entry> copies = used.empty() ? nullptr : heap_zeroed<counter_entry>(used.size());
    if (!copies) {
        return nullptr;
    }
    entry_lock_pass locks;
    for (size_t i = 0; i < used.size(); ++i) {
        locks.with(used[i].lock, [&](bool held) {
            copies.get()[i] = used[i];
            if (table && held && reset != 0) {
                clear_totals(used[i]);
            }
        });
        terminate_texts(copies.get()[i]);
    }
    report_count(count, used.size());
    return copies.release();
}
