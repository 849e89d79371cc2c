// The exported entries of ostrum_data.h that take and reset snapshots, read their records, and set variables.
#include "config/settings.h"
#include "data_file/aggregate.h"
#include "data_file/counters.h"
#include "data_file/errors.h"
#include "data_file/snapshot.h"
#include "data_file/variables.h"
#include "exports/seconds_text.h"
#include "ostrum_data.h"

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
Result word_of(const Record* record, Word Entry::*field)
{
    return record != nullptr ? static_cast<Result>(entry(record)->*field) : Result{0};
}

template <typename Record, typename Entry, size_t N>
const char* text_of(const Record* record, char (Entry::*field)[N])
{
    return record != nullptr ? entry(record)->*field : "";
}

char* seconds_of(const ostrum_counter* record, uint64_t counter_entry::*field, char* buf, int32_t len)
{
    const auto value_tv = word_of<int64_t>(record, field);
    return ostrum::seconds_text(record != nullptr ? &value_tv : nullptr, buf, len);
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

// The masks of the two calls below are handed on as they are.
static_assert(uint32_t{OSTRUM_BY_OPCODE} == ostrum::keep_opcode &&
              uint32_t{OSTRUM_BY_OBJ_TYPE} == ostrum::keep_obj_type &&
              uint32_t{OSTRUM_BY_PROGRAM} == ostrum::keep_program &&
              uint32_t{OSTRUM_BY_OPFLAGS} == ostrum::keep_opflags &&
              uint32_t{OSTRUM_BY_FNAME} == ostrum::keep_fname &&
              uint32_t{OSTRUM_BY_LINENO} == ostrum::keep_lineno &&
              uint32_t{OSTRUM_BY_DB_NUMBER} == ostrum::keep_db_number);
static_assert(uint32_t{OSTRUM_ERROR_BY_DBNO} == ostrum::error_by_dbno &&
              uint32_t{OSTRUM_ERROR_BY_PROGRAM} == ostrum::error_by_program &&
              uint32_t{OSTRUM_ERROR_BY_OPCODE} == ostrum::error_by_opcode &&
              uint32_t{OSTRUM_ERROR_BY_CLASS} == ostrum::error_by_class &&
              uint32_t{OSTRUM_ERROR_BY_LOCATION} == ostrum::error_by_location &&
              uint32_t{OSTRUM_ERROR_BY_ERRNUM} == ostrum::error_by_errnum);

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

// One line each.
// clang-format off
uint32_t ostrum_counter_get_opcode(const ostrum_counter* record) { return word_of<uint32_t>(record, &counter_entry::opcode); }
int64_t ostrum_counter_get_opflags(const ostrum_counter* record) { return word_of<int64_t>(record, &counter_entry::opflags); }
const char* ostrum_counter_get_opname(const ostrum_counter* record) { return text_of(record, &counter_entry::opname); }
const char* ostrum_counter_get_program(const ostrum_counter* record) { return text_of(record, &counter_entry::program); }
const char* ostrum_counter_get_fname(const ostrum_counter* record) { return text_of(record, &counter_entry::fname); }
int64_t ostrum_counter_get_lineno(const ostrum_counter* record) { return word_of<int64_t>(record, &counter_entry::lineno); }
const char* ostrum_counter_get_obj_type(const ostrum_counter* record) { return text_of(record, &counter_entry::obj_type); }
int64_t ostrum_counter_get_recs(const ostrum_counter* record) { return word_of<int64_t>(record, &counter_entry::recs); }
int64_t ostrum_counter_get_calls(const ostrum_counter* record) { return word_of<int64_t>(record, &counter_entry::calls); }
int64_t ostrum_counter_get_errors(const ostrum_counter* record) { return word_of<int64_t>(record, &counter_entry::errors); }
int64_t ostrum_counter_get_total_t(const ostrum_counter* record) { return word_of<int64_t>(record, &counter_entry::total_t); }
int64_t ostrum_counter_get_u_cpu_t(const ostrum_counter* record) { return word_of<int64_t>(record, &counter_entry::u_cpu_t); }
int64_t ostrum_counter_get_s_cpu_t(const ostrum_counter* record) { return word_of<int64_t>(record, &counter_entry::s_cpu_t); }
int64_t ostrum_counter_get_db_number(const ostrum_counter* record) { return word_of<int64_t>(record, &counter_entry::db_number); }
char* ostrum_counter_get_total_t_str(const ostrum_counter* record, char* buf, int32_t len) { return seconds_of(record, &counter_entry::total_t, buf, len); }
char* ostrum_counter_get_u_cpu_t_str(const ostrum_counter* record, char* buf, int32_t len) { return seconds_of(record, &counter_entry::u_cpu_t, buf, len); }
char* ostrum_counter_get_s_cpu_t_str(const ostrum_counter* record, char* buf, int32_t len) { return seconds_of(record, &counter_entry::s_cpu_t, buf, len); }

int64_t ostrum_error_get_dbno(const ostrum_error* record) { return word_of<int64_t>(record, &error_entry::dbno); }
int64_t ostrum_error_get_opcode(const ostrum_error* record) { return word_of<int64_t>(record, &error_entry::opcode); }
const char* ostrum_error_get_opname(const ostrum_error* record) { return text_of(record, &error_entry::opname); }
const char* ostrum_error_get_program(const ostrum_error* record) { return text_of(record, &error_entry::program); }
uint32_t ostrum_error_get_class(const ostrum_error* record) { return word_of<uint32_t>(record, &error_entry::err_class); }
uint32_t ostrum_error_get_location(const ostrum_error* record) { return word_of<uint32_t>(record, &error_entry::location); }
uint32_t ostrum_error_get_errnum(const ostrum_error* record) { return word_of<uint32_t>(record, &error_entry::errnum); }
int64_t ostrum_error_get_errcnt(const ostrum_error* record) { return word_of<int64_t>(record, &error_entry::errcnt); }

const char* ostrum_variable_get_name(const ostrum_variable* record) { return text_of(record, &variable_entry::name); }
const char* ostrum_variable_get_value(const ostrum_variable* record) { return text_of(record, &variable_entry::value); }
// clang-format on
