#include "util/decimal_text.h"

#include "util/time_value.h"

#include <charconv>

namespace ostrum {

namespace {

char* put_four_digits(char* at, uint32_t below_10_000)
{
    return put_two_digits(put_two_digits(at, below_10_000 / 100), below_10_000 % 100);
}

char* put_nine_digits(char* at, uint32_t below_1e9)
{
    const uint32_t last_eight = below_1e9 % 100'000'000;
    *at = static_cast<char>('0' + below_1e9 / 100'000'000);
    return put_four_digits(put_four_digits(at + 1, last_eight / 10'000), last_eight % 10'000);
}

} // namespace

char* put_long_unsigned(char* at, uint64_t value)
{
    return std::to_chars(at, at + longest_number, value).ptr;
}

char* put_nonzero_time(char* at, int64_t value_tv)
{
    const int64_t seconds = value_tv / tv_per_s;
    if (value_tv < 0 || seconds > INT32_MAX) { // what these show is the general formatter's business
        const time_text general = formatted_time(value_tv, format_seconds_ns);
        const size_t length = strlen(general.text);
        memcpy(at, general.text, length);
        return at + length;
    }
    at = put_unsigned(at, static_cast<uint64_t>(seconds));
    *at = '.';
    return put_nine_digits(at + 1, static_cast<uint32_t>(value_tv % tv_per_s));
}

} // namespace ostrum
