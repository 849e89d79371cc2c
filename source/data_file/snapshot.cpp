#include "data_file/snapshot.h"

#include "data_file/aggregate.h"
#include "data_file/counters.h"
#include "data_file/errors.h"
#include "data_file/table_access.h"
#include "data_file/variables.h"
#include "util/diagnostics.h"
#include "util/errno_keeper.h"
#include "util/resources.h"

namespace ostrum {

namespace {

// What the queries on one table have of their own; each message is a whole line.
struct query {
    const record_shape* shape; // null: never aggregated
    const char* no_list;       // also when an aggregated list cannot be made (kept)
    const char* no_aggregate;  // followed by the next
    const char* no_aggregated; // list
};

constexpr query counter_query{&counter_shape, "ostrum_counters_get : out of memory\n",
                              "aggregate_counters: out of memory\n",
                              "ostrum_counters_get_aggr : out of memory\n"};
constexpr query error_query{&error_shape, "ostrum_errors_get : out of memory\n",
                            "aggregate_errors: out of memory\n", "ostrum_errors_get_aggr : out of memory\n"};
constexpr query variable_query{nullptr, "ostrum_variables_get : out of memory\n", "", ""};

template <typename Entry>
struct copied_entries {
    heap_ptr<Entry> entries;
    int32_t count;
    size_t in_use; // before the copy: an entry that is added meanwhile is no sign of short memory
};

void report(const char* line)
{
    err_print("%s", line);
}

template <typename Entry>
Entry** list_over(copied_entries<Entry> copies, int32_t* count, const char* no_list)
{
    const auto used = static_cast<size_t>(copies.count);
    heap_ptr<Entry*> list = heap_zeroed<Entry*>(used + 1);
    if (!list) {
        report(no_list);
        return nullptr;
    }
    Entry* first = copies.entries.release();
    for (size_t i = 0; i < used; ++i) {
        list.get()[i] = first + i;
    }
    report_count(count, used);
    return list.release();
}

// Entries in use and no copy of them: memory was short.
template <typename Entry>
bool has_copies(const copied_entries<Entry>& copies, const char* no_list)
{
    if (!copies.entries && copies.in_use > 0) {
        report(no_list);
    }
    return static_cast<bool>(copies.entries);
}

size_t counters_in_use(rt_info* handle)
{
    return handle != nullptr ? used_entries(handle->image->counters, handle->image->counter_count).size() : 0;
}

// All of them for a null name.
size_t variables_in_use(rt_info* handle, const char* name)
{
    if (handle == nullptr) {
        return 0;
    }
    const auto used = used_entries(handle->image->variables, handle->image->variable_count);
    return static_cast<size_t>(std::count_if(used.begin(), used.end(), [name](const variable_entry& entry) {
        return name == nullptr || strncmp(entry.name, name, text_bytes) == 0;
    }));
}

size_t errors_in_use(rt_info* handle)
{
    return handle != nullptr ? used_entries(handle->image->errors, handle->image->error_count).size() : 0;
}

copied_entries<counter_entry> copy_counters(rt_info* handle, int32_t reset)
{
    copied_entries<counter_entry> copies{nullptr, 0, counters_in_use(handle)};
    copies.entries.reset(rt_counters_copy(handle, reset, &copies.count));
    return copies;
}

copied_entries<error_entry> copy_errors(rt_info* handle, int32_t reset)
{
    copied_entries<error_entry> copies{nullptr, 0, errors_in_use(handle)};
    copies.entries.reset(rt_errors_copy(handle, reset, &copies.count));
    return copies;
}

template <typename Entry>
Entry** plain_list(const query& asked, copied_entries<Entry> copies, int32_t* count)
{
    const errno_keeper keeper;
    report_count(count, 0);
    return has_copies(copies, asked.no_list) ? list_over(std::move(copies), count, asked.no_list) : nullptr;
}

template <typename Entry>
Entry** aggregated_list(const query& asked, copied_entries<Entry> copies, int32_t* count, uint32_t kept)
{
    const errno_keeper keeper;
    report_count(count, 0);
    if (!has_copies(copies, asked.no_list)) {
        return nullptr;
    }
    const size_t merged = aggregate_records(*asked.shape, reinterpret_cast<char*>(copies.entries.get()),
                                            static_cast<size_t>(copies.count), kept);
    if (merged == 0) {
        report(asked.no_aggregate);
        report(asked.no_aggregated);
        return nullptr;
    }
    copies.count = static_cast<int32_t>(merged);
    return list_over(std::move(copies), count, asked.no_list);
}

} // namespace

counter_entry** counter_list(rt_info* handle, int32_t reset, int32_t* count)
{
    return plain_list(counter_query, copy_counters(handle, reset), count);
}

error_entry** error_list(rt_info* handle, int32_t reset, int32_t* count)
{
    return plain_list(error_query, copy_errors(handle, reset), count);
}

variable_entry** variable_list(rt_info* handle, const char* name, int32_t* count)
{
    copied_entries<variable_entry> copies{nullptr, 0, variables_in_use(handle, name)};
    copies.entries.reset(rt_variables_copy(handle, name, &copies.count));
    return plain_list(variable_query, std::move(copies), count);
}

counter_entry** aggregated_counter_list(rt_info* handle, int32_t reset, int32_t* count, uint32_t kept)
{
    return kept == 0 ? counter_list(handle, reset, count)
                     : aggregated_list(counter_query, copy_counters(handle, reset), count, kept);
}

error_entry** aggregated_error_list(rt_info* handle, int32_t reset, int32_t* count, uint32_t kept)
{
    return kept == 0 ? error_list(handle, reset, count)
                     : aggregated_list(error_query, copy_errors(handle, reset), count, kept);
}

} // namespace ostrum
