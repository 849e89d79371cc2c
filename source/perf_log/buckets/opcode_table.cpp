#include "perf_log/buckets/opcode_table.h"

#include <cstring>

#include "host_access/opcode_names.h"

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

opcode_field resolve_opcode_field(const char* field)
{
    const int32_t opcode = get_opnum(field);
    if (opcode != 0) {
        return {opcode_kind::named, opcode};
    }
    return {strcmp(field, "*") == 0 ? opcode_kind::any : opcode_kind::bad, 0};
}

} // namespace ostrum
