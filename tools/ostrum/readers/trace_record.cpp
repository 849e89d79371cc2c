#include "readers/trace_record.h"

#include <array>
#include <charconv>
#include <cstring>
#include <limits>
#include <optional>

#include "readers/time_units.h"

namespace ostrum_tool {
namespace {

constexpr size_t start_fields = 15; // with the letter in front
constexpr size_t figures_fields = 13;
constexpr size_t most_fields = 256; // a line with more is no record, whatever its names hold

// The fields of one line: where each of them ends, without memory of its own beyond the table.
class field_list {
public:
    explicit field_list(std::string_view line) : begin_(line.data())
    {
        const char* const end = begin_ + line.size();
        for (const char* at = begin_; count_ < most_fields; ++at) {
            const auto* comma = static_cast<const char*>(std::memchr(at, ',', static_cast<size_t>(end - at)));
            at = comma != nullptr ? comma : end;
            ends_[count_++] = at;
            if (comma == nullptr) {
                return;
            }
        }
        count_ = 0;
    }

    [[nodiscard]] size_t size() const { return count_; } // 0: too many
    std::string_view operator[](size_t at) const { return joined(at, at + 1); }

    // The text from one field up to, but without, another, commas included.
    [[nodiscard]] std::string_view joined(size_t from, size_t to) const
    {
        const char* const begin = from == 0 ? begin_ : ends_[from - 1] + 1;
        return {begin, static_cast<size_t>(ends_[to - 1] - begin)};
    }

private:
    const char* begin_;
    std::array<const char*, most_fields> ends_; // only count_ of them are set
    size_t count_ = 0;
};

template <typename Number>
bool parse_number(std::string_view text, Number& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size();
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
    return parse_seconds(text, ignored);
}

// Where the numbers between the texts lie once commas inside the texts are allowed for.
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

// Names hold commas more often than the other texts (templates, signatures): the numbers are looked for
// at their distance from the end of the line first, and only then wherever they fit.
std::optional<start_positions> locate(const field_list& fields)
{
    const size_t last = fields.size() - 1;
    const start_positions from_end{last - 8, last - 6, last - 2, last};
    if (is_time(fields[from_end.time]) && is_integer(fields[from_end.lineno]) &&
        is_integer(fields[from_end.lineno + 1]) && is_integer(fields[from_end.lineno + 2]) &&
        is_integer(fields[from_end.bucket])) {
        return from_end;
    }
    const auto time = find_field(fields, 6, last - 8, 0, is_time);
    const auto lineno = time ? find_field(fields, *time + 2, last - 6, 2, is_integer) : std::nullopt;
    const auto bucket = lineno ? find_field(fields, *lineno + 4, last - 2, 0, is_integer) : std::nullopt;
    if (!bucket) {
        return std::nullopt;
    }
    return start_positions{*time, *lineno, *bucket, last};
}

// The part of a time behind the point, in ns.
bool parse_fraction(std::string_view digits, int64_t& fraction_tv)
{
    if (digits.empty() || digits.size() > 9) {
        return false;
    }
    fraction_tv = 0;
    for (size_t place = 0; place < 9; ++place) {
        const unsigned digit =
            place < digits.size() ? static_cast<unsigned char>(digits[place]) - unsigned{'0'} : 0;
        if (digit > 9) {
            return false;
        }
        fraction_tv = fraction_tv * 10 + static_cast<int64_t>(digit);
    }
    return true;
}

} // namespace

bool parse_seconds(std::string_view text, int64_t& time_tv)
{
    if (text == "0") { // most of them
        time_tv = 0;
        return true;
    }
    const size_t point = text.find('.');
    constexpr int64_t max_seconds = std::numeric_limits<int64_t>::max() / ns_per_second - 1;
    int64_t seconds = 0;
    int64_t fraction_tv = 0;
    if (!parse_number(text.substr(0, point), seconds) || seconds > max_seconds || seconds < -max_seconds ||
        (point != std::string_view::npos && !parse_fraction(text.substr(point + 1), fraction_tv))) {
        return false;
    }
    time_tv = seconds * ns_per_second + (text.front() == '-' ? -fraction_tv : fraction_tv);
    return true;
}

const char* parse_start(std::string_view line, start_record& record)
{
    const field_list fields(line);
    if (fields.size() < start_fields) {
        return fields.size() == 0 ? "start record has too many fields" : "start record has too few fields";
    }
    const auto at = locate(fields);
    if (!at || !parse_number(fields[1], record.level) || !parse_number(fields[3], record.opcode) ||
        !parse_number(fields[4], record.flags) || !parse_seconds(fields[at->time], record.time_tv) ||
        !parse_number(fields[at->lineno], record.lineno) ||
        !parse_number(fields[at->lineno + 1], record.pid) ||
        !parse_number(fields[at->lineno + 2], record.tid) ||
        !parse_number(fields[at->bucket], record.bucket) || !parse_number(fields[at->last], record.db_num)) {
        return "start record with a bad number";
    }
    if (record.level < 0 || record.level > max_printed_level || record.bucket < 0) {
        return "start record with an impossible level or bucket";
    }
    record.opname = fields.joined(5, at->time);
    record.fname = fields.joined(at->time + 1, at->lineno);
    record.program = fields.joined(at->lineno + 3, at->bucket);
    record.obj_type = fields.joined(at->bucket + 1, at->last);
    return nullptr;
}

const char* parse_figures(std::string_view line, figures& record)
{
    const field_list fields(line);
    if (fields.size() != figures_fields) {
        return fields.size() > 0 && fields.size() < figures_fields ? "figures record has too few fields"
                                                                   : "figures record has too many fields";
    }
    if (!parse_seconds(fields[1], record.total_tv) || !parse_number(fields[2], record.total_recs) ||
        !parse_number(fields[3], record.total_calls) || !parse_seconds(fields[4], record.min_tv) ||
        !parse_seconds(fields[5], record.max_tv) || !parse_seconds(fields[6], record.bs_tv) ||
        !parse_seconds(fields[7], record.be_tv) || !parse_number(fields[8], record.cm_cache_calls) ||
        !parse_seconds(fields[9], record.cm_cache_tv) || !parse_number(fields[10], record.total_errors) ||
        !parse_seconds(fields[11], record.user_cpu_tv) || !parse_seconds(fields[12], record.sys_cpu_tv)) {
        return "figures record with a bad number";
    }
    return nullptr;
}

} // namespace ostrum_tool
