#include "perf_log/alarms/alarm_limit.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

#include "perf_log/buckets/opcode_table.h"
#include "util/diagnostics.h"
#include "util/resources.h"
#include "util/text.h"
#include "util/time_value.h"

using namespace ostrum;

namespace {

constexpr uint32_t parse_failed = 0xFFFFFFFFU;

enum token : int32_t { threshold_token = 0, flags_token = 1, severity_token = 2, count_of_tokens = 3 };

struct flag_letter {
    char letter;
    uint32_t flags;
};
constexpr flag_letter flag_letters[] = {
    {'-', alarm_raised},
    {'+', alarm_raised | alarm_log_flist},
    {'*', alarm_raised | alarm_log_flist | alarm_full_stack},
    {'r', alarm_recurring},
    {'R', alarm_recurring},
    {'x', alarm_tagged},
    {'X', alarm_tagged},
};

uint32_t flags_of_letter(char letter)
{
    for (const flag_letter& known : flag_letters) {
        if (known.letter == letter) {
            return known.flags;
        }
    }
    return 0; // other characters mean nothing
}

// The number that begins at the text, which is moved past it; what is too large is the largest.
int32_t take_number(const char*& text)
{
    int64_t number = 0;
    for (; is_digit(*text); ++text) {
        number = std::min<int64_t>(number * 10 + (*text - '0'), INT_MAX);
    }
    return static_cast<int32_t>(number);
}

bool parse_threshold(const char* text, alarm_limit& limit)
{
    if (!ostrum::parse_threshold(text, limit.threshold_tv)) {
        err_print("parse_alarm_definition : token[%d] - bad number[%s]\n", threshold_token, text);
        return false;
    }
    return true;
}

// Letters in any order, and a number among them; the last number counts.
bool parse_flags(const char* text, alarm_limit& limit)
{
    int32_t number = 0;
    while (*text != '\0') {
        if (is_digit(*text)) {
            number = take_number(text);
        } else {
            limit.flags |= flags_of_letter(*text++);
        }
    }
    limit.max_flist_bytes = (limit.flags & alarm_log_flist) != 0 ? number : 0;
    return true;
}

bool parse_severity(const char* text, alarm_limit& limit)
{
    if (strlen(text) >= severity_bytes) {
        err_print("parse_alarm_definition : token[%d] - severity[%s] is too long (max %d)\n", severity_token,
                  text, static_cast<int>(severity_bytes));
        return false;
    }
    copy_text(limit.severity, sizeof(limit.severity), text);
    return true;
}

constexpr bool (*token_parsers[count_of_tokens])(const char*, alarm_limit&) = {parse_threshold, parse_flags,
                                                                               parse_severity};

// Tokens go by position: an empty one leaves its default.
bool parse_tokens(char* tokens, const char* text, alarm_limit& limit)
{
    for (int32_t number = 0; tokens != nullptr; ++number) {
        if (number == count_of_tokens) {
            err_print("parse_alarm_definition : too many tokens[%d] in string[%s]\n", number + 1, text);
            return false;
        }
        char* token = tokens;
        tokens = strchr(tokens, ',');
        if (tokens != nullptr) {
            *tokens++ = '\0';
        }
        if (!token_parsers[number](token, limit)) {
            return false;
        }
    }
    return true;
}

const char* yes_or_no(uint32_t flags, alarm_flags flag)
{
    return (flags & flag) != 0 ? "YES" : "NO";
}

} // namespace

uint32_t parse_alarm_definition(const char* text, alarm_limit* limit, int32_t index)
{
    if (text == nullptr || limit == nullptr) {
        err_print("parse_alarm_definition : NULL input parameters\n");
        return parse_failed;
    }
    const heap_ptr<char> tokens = heap_text(text);
    if (!tokens) {
        err_print("parse_alarm_definition : out of memory\n");
        return parse_failed;
    }
    *limit = {};
    limit->index = index;
    if (!parse_tokens(tokens.get(), text, *limit)) {
        err_print("parse_alarm_definition : failed parsing string[%s]\n", text);
        return parse_failed;
    }
    return 0;
}

char* get_alarm_flags_descr(uint32_t flags, int32_t out_bytes, char* out)
{
    static char empty[1]; // never written
    if (out == nullptr || out_bytes <= 0) {
        return empty;
    }
    out[0] = '\0';
    if (flags != 0) {
        snprintf(out, static_cast<size_t>(out_bytes), "[%#x] (LOG-FLIST[%s] FULL-STACK[%s] RECURRING[%s])",
                 flags, yes_or_no(flags, alarm_log_flist), yes_or_no(flags, alarm_full_stack),
                 yes_or_no(flags, alarm_recurring));
    }
    return out;
}
