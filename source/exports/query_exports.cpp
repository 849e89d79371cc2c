// The exported entries of ostrum_data.h that give snapshots and read records.
#include "data_file/counters.h"
#include "data_file/errors.h"
#include "data_file/snapshot.h"
#include "data_file/variables.h"
#include "ostrum_data.h"
#include "util/time_value.h"

namespace {

using ostrum::counter_entry;
using ostrum::error_entry;
using ostrum::variable_entry;

// The opaque records of the interface are the entries of the file.
ostrum_counter** public_list(counter_entry** list)
{
    return reinterpret_cast<ostrum_counter**>(list);
}
ostrum_error** public_list(error_entry** list)
{
    return reinterpret_cast<ostrum_error**>(list);
}
ostrum_variable** public_list(variable_entry** list)
{
    return reinterpret_cast<ostrum_variable**>(list);
}
const counter_entry* entry(const ostrum_counter* record)
{
    return reinterpret_cast<const counter_entry*>(record);
}
const error_entry* entry(const ostrum_error* record)
{
    return reinterpret_cast<const error_entry*>(record);
}
const variable_entry* entry(const ostrum_variable* record)
{
    return reinterpret_cast<const variable_entry*>(record);
}

// A word of a record, in the type of its getter; 0 for a null record.
template <typename Result, typename Record, typename Entry, typename Word>
Result word(const Record* record, Word Entry::*field)
{
    return record != nullptr ? static_cast<Result>(entry(record)->*field) : Result{0};
}

template <typename Record, typename Entry, size_t N>
const char* text(const Record* record, char (Entry::*field)[N])
{
    return record != nullptr ? entry(record)->*field : "";
}

char* time(const ostrum_counter* record, uint64_t counter_entry::*field, char* buf, int32_t len)
{
    if (record != nullptr) {
        return ostrum_fmt_tv(static_cast<int64_t>(entry(record)->*field), buf, len,
                             ostrum::format_seconds_ns);
    }
    if (buf != nullptr && len > 0) {
        buf[0] = '\0';
    }
    return buf;
}

} // namespace

ostrum_counter** ostrum_counters_get(rt_info* file, int32_t reset, int32_t* count)
{
    return public_list(ostrum::counter_list(file, reset, count));
}

ostrum_error** ostrum_errors_get(rt_info* file, int32_t reset, int32_t* count)
{
    return public_list(ostrum::error_list(file, reset, count));
}

ostrum_counter** ostrum_counters_get_aggr(rt_info* file, int32_t reset, int32_t* count, int32_t field_mask)
{
    return public_list(
        ostrum::aggregated_counter_list(file, reset, count, static_cast<uint32_t>(field_mask)));
}

ostrum_error** ostrum_errors_get_aggr(rt_info* file, int32_t reset, int32_t* count, int32_t field_mask)
{
    return public_list(ostrum::aggregated_error_list(file, reset, count, static_cast<uint32_t>(field_mask)));
}

ostrum_variable** ostrum_variables_get(rt_info* file, const char* name, int32_t* count)
{
    return public_list(ostrum::variable_list(file, name, count));
}

void ostrum_counters_destroy(ostrum_counter** list)
{
    ostrum::destroy_list(list);
}

void ostrum_errors_destroy(ostrum_error** list)
{
    ostrum::destroy_list(list);
}

void ostrum_variables_destroy(ostrum_variable** list)
{
    ostrum::destroy_list(list);
}

void ostrum_counters_reset(rt_info* file)
{
    rt_counters_reset(file);
}

void ostrum_errors_reset(rt_info* file)
{
    rt_errors_reset(file);
}

int32_t ostrum_variable_set(rt_info* file, const char* name, const char* value)
{
    return perf_data_file_var_set(file, nullptr, name, value);
}

#define COUNTER_WORD(type, name, field)                                                                      \
    type ostrum_counter_get_##name(const ostrum_counter* record)                                             \
    {                                                                                                        \
        return word<type>(record, &counter_entry::field);                                                    \
    }
#define COUNTER_TEXT(name)                                                                                   \
    const char* ostrum_counter_get_##name(const ostrum_counter* record)                                      \
    {                                                                                                        \
        return text(record, &counter_entry::name);                                                           \
    }
#define COUNTER_TIME(name)                                                                                   \
    COUNTER_WORD(int64_t, name, name)                                                                        \
    char* ostrum_counter_get_##name##_str(const ostrum_counter* record, char* buf, int32_t len)              \
    {                                                                                                        \
        return time(record, &counter_entry::name, buf, len);                                                 \
    }
#define ERROR_WORD(type, name, field)                                                                        \
    type ostrum_error_get_##name(const ostrum_error* record)                                                 \
    {                                                                                                        \
        return word<type>(record, &error_entry::field);                                                      \
    }
#define ERROR_TEXT(name)                                                                                     \
    const char* ostrum_error_get_##name(const ostrum_error* record)                                          \
    {                                                                                                        \
        return text(record, &error_entry::name);                                                             \
    }
#define VARIABLE_TEXT(name)                                                                                  \
    const char* ostrum_variable_get_##name(const ostrum_variable* record)                                    \
    {                                                                                                        \
        return text(record, &variable_entry::name);                                                          \
    }

COUNTER_WORD(uint32_t, opcode, opcode)
COUNTER_WORD(int64_t, opflags, opflags)
COUNTER_TEXT(opname)
COUNTER_TEXT(program)
COUNTER_TEXT(fname)
COUNTER_WORD(int64_t, lineno, lineno)
COUNTER_TEXT(obj_type)
COUNTER_WORD(int64_t, recs, recs)
COUNTER_WORD(int64_t, calls, calls)
COUNTER_WORD(int64_t, errors, errors)
COUNTER_TIME(total_t)
COUNTER_TIME(u_cpu_t)
COUNTER_TIME(s_cpu_t)
COUNTER_WORD(int64_t, db_number, db_number)

ERROR_WORD(int64_t, dbno, dbno)
ERROR_WORD(int64_t, opcode, opcode)
ERROR_TEXT(opname)
ERROR_TEXT(program)
ERROR_WORD(uint32_t, class, err_class)
ERROR_WORD(uint32_t, location, location)
ERROR_WORD(uint32_t, errnum, errnum)
ERROR_WORD(int64_t, errcnt, errcnt)

VARIABLE_TEXT(name)
VARIABLE_TEXT(value)
