#ifndef OSTRUM_UTIL_DECIMAL_TEXT_H
#define OSTRUM_UTIL_DECIMAL_TEXT_H
// Numbers as decimal text, written straight to where they go. Each function returns the place behind the
// text, which has no terminator.
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ostrum {

inline constexpr size_t longest_number = 20; // characters, sign included
inline constexpr size_t longest_time = 64;   // of put_time

// "00" to "99", one after the other.
struct digit_pairs {
    constexpr digit_pairs() : text{}
    {
        for (uint32_t i = 0; i < 100; ++i) {
            text[i][0] = static_cast<char>('0' + i / 10);
            text[i][1] = static_cast<char>('0' + i % 10);
        }
    }
    char text[100][2];
};
inline constexpr digit_pairs two_digits;

inline char* put_two_digits(char* at, uint32_t below_100)
{
    memcpy(at, two_digits.text[below_100], 2);
    return at + 2;
}

char* put_long_unsigned(char* at, uint64_t value); // for put_unsigned

inline char* put_unsigned(char* at, uint64_t value)
{
    if (value < 10) {
        *at = static_cast<char>('0' + value);
        return at + 1;
    }
    return value < 100 ? put_two_digits(at, static_cast<uint32_t>(value)) : put_long_unsigned(at, value);
}

inline char* put_number(char* at, int64_t value)
{
    if (value >= 0) {
        return put_unsigned(at, static_cast<uint64_t>(value));
    }
    *at = '-';
    return put_unsigned(at + 1, 0 - static_cast<uint64_t>(value));
}

char* put_nonzero_time(char* at, int64_t value_tv); // for put_time

// Seconds with nine decimals, as ostrum_fmt_tv() has them; "0" for zero.
inline char* put_time(char* at, int64_t value_tv)
{
    if (value_tv == 0) {
        *at = '0';
        return at + 1;
    }
    return put_nonzero_time(at, value_tv);
}

} // namespace ostrum
#endif
