#include "value_text.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace ostrum_tool {
namespace {

constexpr int64_t ns_per_second = 1'000'000'000;

__attribute__((format(printf, 1, 2))) std::string formatted(const char* format, ...)
{
    std::array<char, 64> text{};
    va_list values;
    va_start(values, format);
    std::vsnprintf(text.data(), text.size(), format, values);
    va_end(values);
    return text.data();
}

// Three digits that count: 1.23, 12.3, 123.
std::string three_digits(double value, const char* unit)
{
    const int decimals = value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
    return formatted("%.*f%s", decimals, value, unit);
}

std::string human_duration(int64_t duration_tv)
{
    if (duration_tv < 0) {
        return formatted("%lldns", static_cast<long long>(duration_tv));
    }
    const auto ns = static_cast<double>(duration_tv);
    if (duration_tv < 1'000) {
        return formatted("%lldns", static_cast<long long>(duration_tv));
    }
    if (ns < 999.5e3) {
        return three_digits(ns / 1e3, "us");
    }
    if (ns < 999.5e6) {
        return three_digits(ns / 1e6, "ms");
    }
    if (ns < 99.95e9) {
        return three_digits(ns / 1e9, "s");
    }
    const auto seconds = static_cast<long long>(duration_tv / ns_per_second);
    if (seconds < 3600) {
        return formatted("%lldm%02llds", seconds / 60, seconds % 60);
    }
    return formatted("%lldh%02lldm", seconds / 3600, seconds / 60 % 60);
}

} // namespace

std::string duration_text(int64_t duration_tv, output_format format)
{
    if (format == output_format::text) {
        return human_duration(duration_tv);
    }
    const long long fraction = duration_tv % ns_per_second;
    return formatted("%s%lld.%09lld", duration_tv < 0 ? "-" : "",
                     static_cast<long long>(std::abs(duration_tv / ns_per_second)), std::abs(fraction));
}

std::string date_text(int64_t time_tv)
{
    const time_t seconds = time_tv / ns_per_second;
    tm fields{};
    std::array<char, 32> text{};
    if (localtime_r(&seconds, &fields) == nullptr ||
        std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &fields) == 0) {
        return "(unknown time)";
    }
    return text.data();
}

std::string share_text(int64_t part, int64_t whole, output_format format)
{
    if (whole <= 0) {
        return format == output_format::text ? "-" : "";
    }
    const double percent = static_cast<double>(part) * 100.0 / static_cast<double>(whole);
    return format == output_format::text ? formatted("%.1f%%", percent) : formatted("%.3f", percent);
}

std::string printable(const std::string& text)
{
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        shown += byte < 0x20 || byte == 0x7F ? formatted("\\x%02X", byte) : std::string(1, c);
    }
    return shown;
}

std::string operation_text(const std::string& opname, int32_t opcode)
{
    const std::string name = opname.empty() ? "(no name)" : printable(opname);
    return opcode > 0 ? name + " (" + std::to_string(opcode) + ")" : name;
}

std::string source_text(const std::string& fname, int32_t lineno)
{
    return fname.empty() ? "" : printable(fname) + ":" + std::to_string(lineno);
}

std::string db_text(int64_t db_number, output_format format)
{
    if (format != output_format::text) {
        return std::to_string(db_number);
    }
    const auto group = [bits = static_cast<uint64_t>(db_number)](int shift) {
        return static_cast<unsigned>(bits >> shift & 0xFFFFU);
    };
    return formatted("%u.%u.%u.%u", group(48), group(32), group(16), group(0));
}

} // namespace ostrum_tool
