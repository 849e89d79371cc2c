#ifndef OSTRUM_TOOL_CLI_NAMED_VALUES_H
#define OSTRUM_TOOL_CLI_NAMED_VALUES_H
// The words that an option takes, and what they stand for: one table for parsing, help and complaints.
#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "tool_errors.h"

namespace ostrum_tool {

template <typename Value>
struct named_value {
    const char* name;
    Value value;
};

template <typename Value, size_t count>
std::vector<std::string> names_in(const std::array<named_value<Value>, count>& values)
{
    std::vector<std::string> names;
    names.reserve(count);
    for (const named_value<Value>& each : values) {
        names.emplace_back(each.name);
    }
    return names;
}

// "total, self, calls"
template <typename Value, size_t count>
std::string names_of_all(const std::array<named_value<Value>, count>& values)
{
    return fmt::format("{}", fmt::join(names_in(values), ", "));
}

// Throws usage_error, which begins with the complaint: "cannot sort by ".
template <typename Value, size_t count>
Value value_named(const std::array<named_value<Value>, count>& values, const std::string& name,
                  const char* complaint)
{
    const auto found = std::find_if(values.begin(), values.end(),
                                    [&](const named_value<Value>& each) { return name == each.name; });
    if (found == values.end()) {
        throw usage_error(complaint + name + ": " + names_of_all(values));
    }
    return found->value;
}

} // namespace ostrum_tool
#endif
