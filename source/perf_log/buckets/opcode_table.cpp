#include "perf_log/buckets/opcode_table.h"

#include <cstring>

#include "host_access/opcode_names.h"
#include "ostrum_util.h"

namespace ostrum {

namespace {
constexpr char separators[] = " \t";
}

char* line_fields::cut_field()
{
    char* field = rest_;
    rest_ += strcspn(rest_, separators);
    if (*rest_ != '\0') {
        *rest_++ = '\0';
    }
    return field;
}

char* line_fields::first()
{
    return cut_field();
}

char* line_fields::next()
{
    rest_ += strspn(rest_, separators);
    return *rest_ != '\0' ? cut_field() : nullptr;
}

bool is_skipped_line(const char* line)
{
    return line[0] == '#' || line[0] == '\0';
}

bool parse_threshold(const char* text, int64_t& threshold_tv)
{
    threshold_tv = ostrum_string_to_tv(text);
    // The sign by itself: the text of a value between -1 and 0 would lose it.
    return threshold_tv >= 0 && text[0] != '-';
}

opcode_field resolve_opcode_field(const char* field)
{
    const int32_t opcode = get_opnum(field);
    if (opcode != 0) {
        return {opcode_kind::named, opcode};
    }
    return {strcmp(field, "*") == 0 ? opcode_kind::any : opcode_kind::bad, 0};
}

} // namespace ostrum
