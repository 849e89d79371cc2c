#ifndef OSTRUM_TOOL_CLI_OPTION_VALUES_H
#define OSTRUM_TOOL_CLI_OPTION_VALUES_H
// What people write behind options. All throw usage_error, which names the option.
#include <cstdint>
#include <string>
#include <vector>

#include <CLI/App.hpp>

#include "output/table.h"

namespace ostrum_tool {

// "250us", "1.5s", "10m", "2h", "1d"; without a unit seconds.
int64_t duration_value(const std::string& option, const std::string& text);
// "2026-11-21 10:00[:00]" or with a T, a date alone, a time of today, "@SECONDS" since 1970, or a duration
// before now: "-2h".
int64_t time_value(const std::string& option, const std::string& text, int64_t now_tv);
// "10%" or "10".
double percent_value(const std::string& option, const std::string& text);

// An option that takes one list "a,b,c" at a time and may be repeated.
template <typename Value>
CLI::Option* add_list(CLI::App& app, const std::string& name, std::vector<Value>& values,
                      const std::string& help)
{
    return app.add_option(name, values, help)->delimiter(',')->allow_extra_args(false);
}

// For help and completion: the names that an option takes. Others are refused where they are used, with a
// line of their own.
inline CLI::Validator names_known(const std::string& names)
{
    return {[](std::string&) { return std::string(); }, "{" + names + "}"};
}
// The option's value is a file's name, or a directory's.
constexpr const char* file_name = "FILE";

// A data file, the default one unless it is named.
void add_data_file_operand(CLI::App& app, std::string& path);

// --json, --jsonl, --csv, --tsv; text without any of them.
void add_format_options(CLI::App& app, output_format& format);

} // namespace ostrum_tool
#endif
