#ifndef OSTRUM_TOOL_CLI_NAMED_VALUES_H
#define OSTRUM_TOOL_CLI_NAMED_VALUES_H
// The words that an option takes, and what they stand for: one table for parsing, help and complaints.
#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace ostrum_tool {

template <typename Value>
struct named_value {
    const char* name;
    Value value;
};

// Null when no value has that name.
template <typename Value, size_t count>
const named_value<Value>* find_named(const std::array<named_value<Value>, count>& values,
                                     std::string_view name)
{
    const auto found = std::find_if(values.begin(), values.end(),
                                    [&](const named_value<Value>& each) { return name == each.name; });
    return found != values.end() ? &*found : nullptr;
}

// "total, self, calls"
template <typename Value, size_t count>
std::string names_of_all(const std::array<named_value<Value>, count>& values)
{
    std::string names;
    for (const named_value<Value>& each : values) {
        names += (names.empty() ? "" : ", ") + std::string(each.name);
    }
    return names;
}

} // namespace ostrum_tool
#endif
