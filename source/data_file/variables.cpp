#include "data_file/variables.h"

#include <cstdio>
#include <cstdlib>

#include "data_file/locks.h"
#include "data_file/table_access.h"
#include "os/os_calls.h"
#include "util/diagnostics.h"
#include "util/errno_keeper.h"
#include "util/resources.h"

namespace ostrum {

namespace {

constexpr const char* variable_lock_name = "variable_mutex";

// A text taken out of the mapping, with its terminator.
template <size_t N>
struct text_copy {
    char text[N];
};

template <size_t N>
text_copy<N> copy_of(const char (&field)[N])
{
    text_copy<N> copy;
    const size_t length = strnlen(field, N - 1);
    memcpy(copy.text, field, length);
    copy.text[length] = '\0';
    return copy;
}

bool acceptable(const rt_info* handle, const char* name, const char* value)
{
    const size_t name_bytes = strlen(text_or_empty(name));
    const size_t value_bytes = strlen(text_or_empty(value));
    if (handle != nullptr && name != nullptr && name_bytes < text_bytes && value != nullptr &&
        value_bytes < variable_value_bytes) {
        return true;
    }
    err_print("rt_variable_add : bad input - rtip[%p] name[%p](%s)(%d/%d) value[%p](%s)(%d/%d)\n",
              static_cast<const void*>(handle), static_cast<const void*>(name), text_or_empty(name),
              static_cast<int>(name_bytes), static_cast<int>(text_bytes), static_cast<const void*>(value),
              text_or_empty(value), static_cast<int>(value_bytes), static_cast<int>(variable_value_bytes));
    return false;
}

void debug_set(const variable_entry& entry, const char* value)
{
    if (debug_on(debug_general)) {
        debug_print("rt_variable_set_str : name[%s] value[%s]\n", copy_of(entry.name).text, value);
    }
}

// False when the lock cannot be had: the value stays.
bool store_value(variable_entry& entry, const char* value, int64_t lock_limit_tv)
{
    const slot_guard guard(entry.lock, lock_limit_tv);
    if (guard) {
        store_text(entry.value, value);
    }
    return static_cast<bool>(guard);
}

// Reads even without the lock: an operator's switch must not die with the process that held it.
text_copy<variable_value_bytes> read_value(variable_entry& entry)
{
    const slot_guard guard(entry.lock);
    return copy_of(entry.value);
}

// Under the table lock.
void set_modified_now(data_file_image& image)
{
    std::atomic_ref(image.variables_modified_tv).store(os::realtime_ns(), std::memory_order_relaxed);
}

variable_entry* find(std::span<variable_entry> used, const char* name)
{
    const auto found = std::find_if(used.begin(), used.end(), [name](const variable_entry& entry) {
        return strncmp(entry.name, name, text_bytes) == 0; // exact: longer names are refused, not cut
    });
    return found == used.end() ? nullptr : &*found;
}

// Under the table lock, with room left.
variable_entry* insert(rt_info& handle, size_t index, const char* name, const char* value)
{
    variable_entry& entry = handle.image->variables[index];
    store_text(entry.name, name);
    store_text(entry.value, value);
    initialise_entry_lock(handle, entry.lock, variable_lock_name);
    publish_count(handle.image->variable_count, index + 1);
    set_modified_now(*handle.image);
    return &entry;
}

enum class add_outcome : int32_t { found, set, inserted, table_full, no_lock };

struct add_result {
    add_outcome outcome;
    variable_entry* entry; // null for the last two outcomes
};

add_result find_or_insert(rt_info& handle, const char* name, const char* value, bool overwrite)
{
    const data_file_guard table(&handle, DATA_FILE_LOCK_TABLES);
    if (!table) {
        return {add_outcome::no_lock, nullptr};
    }
    const auto used = used_entries(handle.image->variables, handle.image->variable_count);
    variable_entry* entry = find(used, name);
    if (entry == nullptr) {
        return used.size() >= max_variables
                   ? add_result{add_outcome::table_full, nullptr}
                   : add_result{add_outcome::inserted, insert(handle, used.size(), name, value)};
    }
    initialise_entry_lock_if_unset(handle, entry->lock, variable_lock_name);
    if (!overwrite) {
        return {add_outcome::found, entry};
    }
    if (!store_value(*entry, value, nested_lock_limit_tv)) {
        return {add_outcome::no_lock, nullptr};
    }
    set_modified_now(*handle.image);
    return {add_outcome::set, entry};
}

// The entry of the cache when there is one in it, else the table's, which the cache then keeps.
variable_entry* cached_or_found(rt_info* handle, variable_entry** cache, const char* name,
                                const char* initial_value)
{
    if (cache != nullptr && *cache != nullptr) {
        return *cache;
    }
    variable_entry* entry = rt_variable_add(handle, name, initial_value, 0);
    if (cache != nullptr) {
        *cache = entry;
    }
    return entry;
}

void copy_entry(variable_entry& copy, const variable_entry& entry)
{
    copy = entry;
    terminate_text(copy.name);
    terminate_text(copy.value);
}

void debug_listed(size_t index, const variable_entry& entry)
{
    if (debug_on(debug_general)) {
        debug_print("rt_variables_debug : #[%d] name[%s] value[%s]\n", static_cast<int>(index),
                    copy_of(entry.name).text, copy_of(entry.value).text);
    }
}

} // namespace

} // namespace ostrum

using namespace ostrum;

variable_entry* rt_variable_add(rt_info* handle, const char* name, const char* value, int32_t set)
{
    if (!acceptable(handle, name, value)) {
        return nullptr;
    }
    const add_result result = find_or_insert(*handle, name, value, set != 0);
    if (result.outcome == add_outcome::table_full) {
        err_print("rt_variable_add : variable table is full - %d entries used\n",
                  static_cast<int>(max_variables));
    } else if (result.outcome == add_outcome::set) {
        debug_set(*result.entry, value);
    }
    return result.entry;
}

void rt_variable_set_str(variable_entry* entry, const char* value)
{
    if (entry != nullptr && value != nullptr && store_value(*entry, value, table_lock_limit_tv)) {
        debug_set(*entry, value);
    }
}

void rt_variable_set_int(variable_entry* entry, int32_t n)
{
    char text[16];
    snprintf(text, sizeof text, "%d", n);
    rt_variable_set_str(entry, text);
}

void rt_variable_set_double(variable_entry* entry, double x)
{
    char text[128];
    snprintf(text, sizeof text, "%lf", x);
    rt_variable_set_str(entry, text);
}

char* rt_variable_get_str(variable_entry* entry)
{
    const errno_keeper keeper;
    return entry != nullptr ? os::duplicate(read_value(*entry).text) : nullptr;
}

int32_t rt_variable_get_int(variable_entry* entry)
{
    const errno_keeper keeper;
    return entry != nullptr ? static_cast<int32_t>(strtol(read_value(*entry).text, nullptr, 10)) : 0;
}

double rt_variable_get_double(variable_entry* entry)
{
    const errno_keeper keeper;
    return entry != nullptr ? strtod(read_value(*entry).text, nullptr) : 0.0;
}

char* perf_data_file_var_get(rt_info* handle, variable_entry** cache, const char* name)
{
    return rt_variable_get_str(cached_or_found(handle, cache, name, ""));
}

int32_t perf_data_file_var_get_int(rt_info* handle, variable_entry** cache, const char* name)
{
    return rt_variable_get_int(cached_or_found(handle, cache, name, "0"));
}

int32_t perf_data_file_var_set(rt_info* handle, variable_entry** cache, const char* name, const char* value)
{
    if (cache != nullptr && *cache != nullptr) {
        rt_variable_set_str(*cache, value);
        return 0;
    }
    variable_entry* entry = rt_variable_add(handle, name, value, 1);
    if (cache != nullptr) {
        *cache = entry;
    }
    return entry != nullptr ? 0 : -1;
}

int32_t perf_data_file_var_set_int(rt_info* handle, variable_entry** cache, const char* name, int32_t n)
{
    char text[32];
    snprintf(text, sizeof text, "%d", n);
    return perf_data_file_var_set(handle, cache, name, text);
}

int64_t perf_data_file_var_last_mod_t(rt_info* handle)
{
    if (handle == nullptr) {
        return 0;
    }
    const data_file_guard table(handle, DATA_FILE_LOCK_TABLES);
    return std::atomic_ref(handle->image->variables_modified_tv).load(std::memory_order_acquire);
}

variable_entry* rt_variables_copy(rt_info* handle, const char* name, int32_t* count)
{
    report_count(count, 0);
    if (handle == nullptr) {
        return nullptr;
    }
    const errno_keeper keeper;
    const data_file_guard table(handle, DATA_FILE_LOCK_TABLES);
    auto chosen = used_entries(handle->image->variables, handle->image->variable_count);
    if (name != nullptr) {
        variable_entry* named = find(chosen, name);
        chosen = named != nullptr ? std::span(named, 1) : std::span<variable_entry>();
    }
    heap_ptr<variable_entry> copies = chosen.empty() ? nullptr : heap_zeroed<variable_entry>(chosen.size());
    if (!copies) {
        return nullptr;
    }
    entry_lock_pass locks;
    for (size_t i = 0; i < chosen.size(); ++i) {
        locks.with(chosen[i].lock, [&](bool) { copy_entry(copies.get()[i], chosen[i]); });
    }
    report_count(count, chosen.size());
    return copies.release();
}

void rt_variables_debug(rt_info* handle, const char* title)
{
    const bool debug = debug_on(debug_general);
    if (handle == nullptr) {
        if (debug) {
            debug_print("rt_variables_debug : NULL pointer\n");
        }
        return;
    }
    const auto used = used_entries(handle->image->variables, handle->image->variable_count);
    if (debug && title != nullptr) {
        debug_print("rt_variables_debug : %s\n", title);
    }
    if (debug) {
        debug_print("rt_variables_debug : found %d variables\n", static_cast<int>(used.size()));
    }
    entry_lock_pass locks; // taken even when nothing is written (kept)
    for (size_t i = 0; i < used.size(); ++i) {
        locks.with(used[i].lock, [&](bool) { debug_listed(i, used[i]); });
    }
}
