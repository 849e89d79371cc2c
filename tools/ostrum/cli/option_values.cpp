#include "cli/option_values.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>
#include <string_view>
#include <tuple>

#include "readers/data_file.h"
#include "readers/time_units.h"
#include "readers/trace_record.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

struct time_unit {
    std::string_view name;
    int64_t ns;
};
constexpr std::array<time_unit, 8> time_units{{{"ns", 1},
                                               {"us", 1'000},
                                               {"ms", 1'000'000},
                                               {"s", ns_per_second},
                                               {"", ns_per_second},
                                               {"m", 60 * ns_per_second},
                                               {"h", 3'600 * ns_per_second},
                                               {"d", 86'400 * ns_per_second}}};

// Number times unit, exact: "1.5" with nine decimals is ns of a second, scaled by the unit.
bool parse_duration(std::string_view text, int64_t& duration_tv)
{
    const size_t digits = std::min(text.find_first_not_of("0123456789."), text.size());
    const std::string_view unit_name = text.substr(digits);
    int64_t billionths = 0;
    if (digits == 0 || !parse_seconds(text.substr(0, digits), billionths)) {
        return false;
    }
    for (const time_unit& unit : time_units) {
        if (unit.name == unit_name) {
            const int64_t fraction = billionths % ns_per_second;
            const int64_t fraction_tv = unit.ns >= ns_per_second ? fraction * (unit.ns / ns_per_second)
                                                                 : fraction * unit.ns / ns_per_second;
            return !__builtin_mul_overflow(billionths / ns_per_second, unit.ns, &duration_tv) &&
                   !__builtin_add_overflow(duration_tv, fraction_tv, &duration_tv);
        }
    }
    return false;
}

bool parse_date(const std::string& text, int64_t now_tv, int64_t& time_tv)
{
    const time_t now = now_tv / ns_per_second;
    for (const char* format : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M",
                               "%Y-%m-%d", "%H:%M:%S", "%H:%M"}) {
        tm fields{};
        localtime_r(&now, &fields);
        fields.tm_hour = fields.tm_min = fields.tm_sec = 0;
        fields.tm_isdst = -1;
        const char* const end = strptime(text.c_str(), format, &fields);
        if (end != nullptr && *end == '\0') {
            time_tv = static_cast<int64_t>(mktime(&fields)) * ns_per_second;
            return true;
        }
    }
    return false;
}

} // namespace

int64_t duration_value(const std::string& option, const std::string& text)
{
    int64_t duration_tv = 0;
    if (!parse_duration(text, duration_tv)) {
        throw usage_error(option + " " + text + ": no duration, such as 250us, 1.5s or 10m");
    }
    return duration_tv;
}

int64_t time_value(const std::string& option, const std::string& text, int64_t now_tv)
{
    int64_t time_tv = 0;
    if (text.starts_with("@") && parse_seconds(std::string_view(text).substr(1), time_tv)) {
        return time_tv;
    }
    if (text.starts_with("-") && parse_duration(std::string_view(text).substr(1), time_tv)) {
        return now_tv - time_tv;
    }
    if (!parse_date(text, now_tv, time_tv)) {
        throw usage_error(option + " " + text +
                          ": no time, such as \"2026-11-21 10:00\", 10:00, -2h or @1795256941");
    }
    return time_tv;
}

double percent_value(const std::string& option, const std::string& text)
{
    double percent = 0;
    const char* const end = text.data() + text.size() - (text.ends_with("%") ? 1 : 0);
    const auto [stop, error] = std::from_chars(text.data(), end, percent);
    if (error != std::errc{} || stop != end || !(percent >= 0 && percent < 1e9)) {
        throw usage_error(option + " " + text + ": no percentage, such as 10%");
    }
    return percent;
}

void add_data_file_operand(CLI::App& app, std::string& path)
{
    path = default_data_file;
    app.add_option("DATAFILE", path, std::string("The data file (default: ") + default_data_file + ")");
}

void add_format_options(CLI::App& app, output_format& format)
{
    CLI::Option_group* const group = app.add_option_group("output format");
    for (const auto& [name, value, help] :
         {std::tuple("--json", output_format::json, "One JSON object; times in ns"),
          std::tuple("--jsonl", output_format::jsonl, "JSON, one object a line"),
          std::tuple("--csv", output_format::csv, "CSV with a header line"),
          std::tuple("--tsv", output_format::tsv, "TSV with a header line")}) {
        group->add_flag_callback(
            name, [&format, chosen = value] { format = chosen; }, help);
    }
    group->require_option(0, 1);
}

} // namespace ostrum_tool
