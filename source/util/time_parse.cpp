#include "util/diagnostics.h"
#include "util/time_value.h"

#include <cstdlib>

using ostrum::tv_per_s;

namespace {

constexpr int64_t syntax_error = -1;
constexpr int64_t too_many_digits = 1'000'000'000;

int64_t invalid_characters(const char* text, const char* at)
{
    err_print("ostrum_string_to_tv : invalid characters in string[%s] at[%s]\n", text, at);
    return syntax_error;
}

// 10 to the number of leading zeros, which the text is moved past. Beyond nine zeros the fraction is
// below a nanosecond whatever follows, so the divisor stops growing there.
int64_t skip_leading_zeros(const char*& text)
{
    int64_t divisor = 1;
    for (; *text == '0'; ++text) {
        divisor *= divisor <= tv_per_s ? 10 : 1;
    }
    return divisor;
}

// A fraction's digits as nanoseconds: 5 is 500,000,000, 50 as well. Below ten digits; false when the
// value is none that digits alone can give.
bool scale_to_ns(int64_t digits, int64_t& fraction_tv)
{
    int64_t unit_tv = tv_per_s / 10;
    for (int64_t limit = 10; digits >= limit; limit *= 10) {
        unit_tv /= 10;
    }
    return !__builtin_mul_overflow(digits, unit_tv, &fraction_tv);
}

bool combine(int64_t seconds, int64_t fraction_tv, int64_t& tv)
{
    return !__builtin_mul_overflow(seconds, tv_per_s, &tv) && !__builtin_add_overflow(tv, fraction_tv, &tv);
}

} // namespace

int64_t ostrum_string_to_tv(const char* text)
{
    if (text == nullptr || *text == '\0') {
        return 0;
    }
    char* rest = nullptr;
    const int64_t seconds = strtoll(text, &rest, 10);
    int64_t fraction_tv = 0;
    bool in_range = true;
    if (*rest == '.') {
        const char* fraction = rest + 1;
        const int64_t divisor = skip_leading_zeros(fraction);
        const int64_t digits = strtoll(fraction, &rest, 10);
        if (*rest != '\0') {
            return invalid_characters(text, rest);
        }
        if (digits >= too_many_digits) {
            err_print("ostrum_string_to_tv : str[%s] has too many decimal digits\n", text);
            return syntax_error;
        }
        in_range = scale_to_ns(digits, fraction_tv);
        fraction_tv /= divisor;
    }
    if (*rest != '\0') {
        return invalid_characters(text, rest);
    }
    int64_t tv = 0;
    if (!in_range || !combine(seconds, fraction_tv, tv)) {
        err_print("ostrum_string_to_tv : str[%s] is out of range\n", text);
        return syntax_error;
    }
    return tv;
}
