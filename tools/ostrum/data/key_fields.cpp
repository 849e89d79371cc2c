#include "data/key_fields.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <type_traits>
#include <unordered_map>

#include <fmt/format.h>

#include "tool_errors.h"

namespace ostrum_tool {
namespace {

void add_key(std::string& key, const std::string& text)
{
    key.append(text).push_back('\0');
}

template <typename Number>
requires std::is_integral_v<Number>
void add_key(std::string& key, Number number)
{
    key.append(reinterpret_cast<const char*>(&number), sizeof number);
}

// A field of a record: how it gets into a key, and how it is left out.
template <typename Record>
struct key_field {
    field_set bit;
    std::string_view name;
    void (*add)(std::string& key, const Record& record);
    void (*blank)(Record& record);
};

template <auto... Members, typename Record>
void add_members(std::string& key, const Record& record)
{
    (add_key(key, record.*Members), ...);
}

template <auto... Members, typename Record>
void blank_members(Record& record)
{
    ((record.*Members = {}), ...);
}

template <typename Record, auto... Members>
constexpr key_field<Record> field_of(field_set bit, std::string_view name)
{
    return {bit, name, add_members<Members...>, blank_members<Members...>};
}

using counter = operation_counter;
constexpr key_field<counter> counter_key[] = {
    field_of<counter, &counter::opcode, &counter::opname>(counter_field::operation, "operation"),
    field_of<counter, &counter::obj_type>(counter_field::type, "type"),
    field_of<counter, &counter::program>(counter_field::program, "program"),
    field_of<counter, &counter::opflags>(counter_field::flags, "flags"),
    field_of<counter, &counter::fname>(counter_field::file, "file"),
    field_of<counter, &counter::lineno>(counter_field::line, "line"),
    field_of<counter, &counter::db_number>(counter_field::db, "db"),
};
constexpr key_field<error_counter> error_key[] = {
    field_of<error_counter, &error_counter::opcode, &error_counter::opname>(error_field::operation,
                                                                            "operation"),
    field_of<error_counter, &error_counter::program>(error_field::program, "program"),
    field_of<error_counter, &error_counter::err_class>(error_field::error_class, "class"),
    field_of<error_counter, &error_counter::location>(error_field::location, "location"),
    field_of<error_counter, &error_counter::errnum>(error_field::error, "error"),
    field_of<error_counter, &error_counter::dbno>(error_field::db, "db"),
};

void add_totals(operation_counter& sum, const operation_counter& more)
{
    sum.recs += more.recs;
    sum.calls += more.calls;
    sum.errors += more.errors;
    sum.total_tv += more.total_tv;
    sum.user_cpu_tv += more.user_cpu_tv;
    sum.sys_cpu_tv += more.sys_cpu_tv;
}

void add_totals(error_counter& sum, const error_counter& more)
{
    sum.count += more.count;
}

template <typename Record>
std::vector<std::string> names_of(std::span<const key_field<Record>> fields)
{
    std::vector<std::string> names;
    for (const auto& field : fields) {
        names.emplace_back(field.name);
    }
    return names;
}

template <typename Record>
field_set fields_named(const std::string& option, const std::vector<std::string>& names,
                       std::span<const key_field<Record>> known)
{
    field_set kept = 0;
    for (const std::string& name : names) {
        const auto field =
            std::find_if(known.begin(), known.end(), [&](const auto& each) { return each.name == name; });
        if (field == known.end()) {
            throw usage_error(fmt::format("{} {}: no key field; there are {}", option, name,
                                          fmt::join(names_of(known), ", ")));
        }
        kept |= field->bit;
    }
    return kept;
}

template <typename Record>
std::vector<Record> merged(std::vector<Record> records, field_set kept,
                           std::span<const key_field<Record>> fields)
{
    if (kept == 0) {
        return records;
    }
    std::unordered_map<std::string, size_t> places;
    std::vector<Record> sums;
    for (Record& record : records) {
        std::string key;
        for (const auto& field : fields) {
            (kept & field.bit) != 0 ? field.add(key, record) : field.blank(record);
        }
        const auto [place, is_new] = places.try_emplace(std::move(key), sums.size());
        if (is_new) {
            sums.push_back(std::move(record));
        } else {
            add_totals(sums[place->second], record);
        }
    }
    return sums;
}

} // namespace

field_set counter_fields(const std::string& option, const std::vector<std::string>& names)
{
    return fields_named<operation_counter>(option, names, counter_key);
}

field_set error_fields(const std::string& option, const std::vector<std::string>& names)
{
    return fields_named<error_counter>(option, names, error_key);
}

std::vector<std::string> counter_field_names()
{
    return names_of<operation_counter>(counter_key);
}

std::vector<std::string> error_field_names()
{
    return names_of<error_counter>(error_key);
}

std::vector<operation_counter> merged_counters(std::vector<operation_counter> counters, field_set kept)
{
    return merged<operation_counter>(std::move(counters), kept, counter_key);
}

std::vector<error_counter> merged_errors(std::vector<error_counter> errors, field_set kept)
{
    return merged<error_counter>(std::move(errors), kept, error_key);
}

} // namespace ostrum_tool
