#include "readers/trace_record.h"

#include <charconv>
#include <limits>
#include <optional>
#include <vector>

namespace ostrum_tool {
namespace {

constexpr size_t start_fields = 15; // with the letter in front
constexpr size_t figures_fields = 13;
constexpr int64_t ns_per_second = 1'000'000'000;

using field_list = std::vector<std::string_view>;

field_list split(std::string_view line)
{
    field_list fields;
    for (size_t begin = 0;;) {
        const size_t comma = line.find(',', begin);
        fields.push_back(line.substr(begin, comma - begin));
        if (comma == std::string_view::npos) {
            return fields;
        }
        begin = comma + 1;
    }
}

template <typename Number>
bool parse_number(std::string_view text, Number& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size();
}

// "0", or seconds with up to nine decimals.
bool parse_time(std::string_view text, int64_t& time_tv)
{
    const size_t point = text.find('.');
    int64_t seconds = 0;
    if (!parse_number(text.substr(0, point), seconds)) {
        return false;
    }
    std::string_view digits = point == std::string_view::npos ? "0" : text.substr(point + 1);
    uint32_t fraction = 0;
    constexpr int64_t max_seconds = std::numeric_limits<int64_t>::max() / ns_per_second - 1;
    if (digits.size() > 9 || !parse_number(digits, fraction) || seconds > max_seconds ||
        seconds < -max_seconds) {
        return false;
    }
    for (size_t place = digits.size(); place < 9; ++place) {
        fraction *= 10;
    }
    const int64_t sign = text.front() == '-' ? -1 : 1;
    time_tv = seconds * ns_per_second + sign * static_cast<int64_t>(fraction);
    return true;
}

bool is_integer(std::string_view text)
{
    int64_t number = 0;
    uint64_t unsigned_number = 0;
    return parse_number(text, number) || parse_number(text, unsigned_number);
}

bool is_time(std::string_view text)
{
    int64_t ignored = 0;
    return parse_time(text, ignored);
}

// Where the fields of a start record lie once commas inside the texts are allowed for.
struct start_positions {
    size_t time, lineno, bucket, last;
};

// First index in [from, to] whose field, and the `more` after it, satisfy the test.
template <typename Test>
std::optional<size_t> find_field(const field_list& fields, size_t from, size_t to, size_t more, Test test)
{
    for (size_t at = from; at <= to; ++at) {
        bool all = true;
        for (size_t next = at; all && next <= at + more; ++next) {
            all = test(fields[next]);
        }
        if (all) {
            return at;
        }
    }
    return std::nullopt;
}

std::optional<start_positions> locate(const field_list& fields)
{
    const size_t last = fields.size() - 1;
    const auto time = find_field(fields, 6, last - 8, 0, is_time);
    if (!time) {
        return std::nullopt;
    }
    const auto lineno = find_field(fields, *time + 2, last - 6, 2, is_integer);
    if (!lineno) {
        return std::nullopt;
    }
    const auto bucket = find_field(fields, *lineno + 4, last - 2, 0, is_integer);
    if (!bucket) {
        return std::nullopt;
    }
    return start_positions{*time, *lineno, *bucket, last};
}

// The text from one field up to, but without, another, commas included.
std::string joined(const field_list& fields, size_t from, size_t to)
{
    const char* begin = fields[from].data();
    const char* end = fields[to - 1].data() + fields[to - 1].size();
    return {begin, end};
}

std::string too_few(const char* kind, size_t found, size_t needed)
{
    return std::string(kind) + " record has " + std::to_string(found) + " fields in place of " +
           std::to_string(needed);
}

} // namespace

bool parse_start(std::string_view line, start_record& record, std::string& problem)
{
    const field_list fields = split(line);
    if (fields.size() < start_fields) {
        problem = too_few("start", fields.size(), start_fields);
        return false;
    }
    const auto at = locate(fields);
    if (!at || !parse_number(fields[1], record.level) || !parse_number(fields[3], record.opcode) ||
        !parse_number(fields[4], record.flags) || !parse_time(fields[at->time], record.time_tv) ||
        !parse_number(fields[at->lineno], record.lineno) ||
        !parse_number(fields[at->lineno + 1], record.pid) ||
        !parse_number(fields[at->lineno + 2], record.tid) ||
        !parse_number(fields[at->bucket], record.bucket) || !parse_number(fields[at->last], record.db_num)) {
        problem = "start record with a bad number";
        return false;
    }
    if (record.level < 0 || record.level > max_printed_level || record.bucket < 0) {
        problem = "start record with an impossible level or bucket";
        return false;
    }
    record.opname = joined(fields, 5, at->time);
    record.fname = joined(fields, at->time + 1, at->lineno);
    record.program = joined(fields, at->lineno + 3, at->bucket);
    record.obj_type = joined(fields, at->bucket + 1, at->last);
    return true;
}

bool parse_figures(std::string_view line, figures& record, std::string& problem)
{
    const field_list fields = split(line);
    if (fields.size() != figures_fields) {
        problem = too_few("figures", fields.size(), figures_fields);
        return false;
    }
    if (!parse_time(fields[1], record.total_tv) || !parse_number(fields[2], record.total_recs) ||
        !parse_number(fields[3], record.total_calls) || !parse_time(fields[4], record.min_tv) ||
        !parse_time(fields[5], record.max_tv) || !parse_time(fields[6], record.bs_tv) ||
        !parse_time(fields[7], record.be_tv) || !parse_number(fields[8], record.cm_cache_calls) ||
        !parse_time(fields[9], record.cm_cache_tv) || !parse_number(fields[10], record.total_errors) ||
        !parse_time(fields[11], record.user_cpu_tv) || !parse_time(fields[12], record.sys_cpu_tv)) {
        problem = "figures record with a bad number";
        return false;
    }
    return true;
}

} // namespace ostrum_tool
