// Times from text and to text: what parses prints back, and plain decimals have the value of their digits.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <ctime>
#include <vector>

#include "fuzz/fuzz_target.h"
#include "util/time_value.h"

using namespace ostrum;

namespace {

bool all_digits(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](unsigned char c) { return isdigit(c) != 0; });
}

// Seconds of one to nine digits with at most nine decimals.
bool is_plain_decimal(std::string_view text)
{
    const size_t point = std::min(text.find('.'), text.size());
    const std::string_view decimals = text.substr(std::min(point + 1, text.size()));
    return point >= 1 && point <= 9 && decimals.size() <= 9 && all_digits(text.substr(0, point)) &&
           all_digits(decimals);
}

int64_t value_of_digits(std::string_view text)
{
    int64_t value = 0;
    int decimals = -1;
    for (const char c : text) {
        value = c == '.' ? value : value * 10 + (c - '0');
        decimals += c == '.' || decimals >= 0 ? 1 : 0;
    }
    for (int place = std::max(decimals, 0); place < 9; ++place) {
        value *= 10;
    }
    return value;
}

void check_prints_back(int64_t tv)
{
    char text[64];
    snprintf(text, sizeof(text), "%ld.%09ld", tv / tv_per_s, tv % tv_per_s);
    fuzz::must(ostrum_string_to_tv(text) == tv, "a time that parses prints back", text);
    if (tv / tv_per_s <= INT32_MAX) { // seconds wrap there
        fuzz::must(strcmp(formatted_time(tv, format_seconds_ns).text, text) == 0,
                   "the library prints nine decimals alike", text);
    }
}

void check_calendar(int64_t tv)
{
    if (tv / tv_per_s > INT32_MAX) {
        return;
    }
    const time_t seconds = tv / tv_per_s;
    tm fields{};
    char expected[64];
    gmtime_r(&seconds, &fields);
    strftime(expected, sizeof(expected), "%Y/%m/%d %H:%M:%S", &fields);
    fuzz::must(strcmp(formatted_time(tv, 0x20).text, expected) == 0, "the calendar's date", expected);
}

void check_grouped(int64_t value)
{
    char text[64];
    const uint32_t length = ostrum_fmt_int_with_commas(value, text, sizeof(text));
    fuzz::must(length == strlen(text), "the length of a grouped number is given", text);
    std::string digits(text);
    digits.erase(std::remove(digits.begin(), digits.end(), ','), digits.end());
    fuzz::must(digits == std::to_string(value), "a grouped number keeps its digits", text);
}

// Any code into any room keeps within it, but for "bad format", which takes 11 bytes.
void check_formats(int64_t tv, uint32_t code, size_t room)
{
    const size_t bytes = std::max<size_t>(room, 11);
    std::vector<char> out(bytes + 1, '!');
    ostrum_fmt_tv(tv, out.data(), static_cast<int32_t>(room), code);
    fuzz::must(out[bytes] == '!', "a time keeps within its room");
    fuzz::must(room == 0 || strnlen(out.data(), bytes) < bytes, "a formatted time has an end");
}

} // namespace

// Two bytes of format code, one of room, then the text.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const int utc = setenv("TZ", "UTC0", 1);
    const fuzz::nothing_left_behind watch;
    if (utc != 0 || size < 3) {
        return 0;
    }
    const std::string text(fuzz::text_of(data + 3, size - 3));
    const int64_t tv = ostrum_string_to_tv(text.c_str());
    if (is_plain_decimal(text)) {
        fuzz::must(tv == value_of_digits(text), "a plain decimal has the value of its digits", text);
    }
    if (tv >= 0) {
        check_prints_back(tv);
        check_calendar(tv);
    }
    check_grouped(tv);
    check_grouped(-tv);
    check_formats(tv, data[0] + 256U * data[1], data[2]);
    return 0;
}
