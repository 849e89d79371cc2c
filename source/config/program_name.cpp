#include "config/program_name.h"

#include "host_access/correlation.h"
#include "util/text.h"

#include <algorithm>
#include <cstring>

namespace {

struct text_part {
    const char* begin;
    size_t length;
};

// The text between the second and the third ':'; empty when there are fewer than three.
text_part third_field(const char* correlation)
{
    const char* begin = correlation;
    for (int colons = 0; begin != nullptr && colons < 2; ++colons) {
        const char* colon = strchr(begin, ':');
        begin = colon != nullptr ? colon + 1 : nullptr;
    }
    const char* end = begin != nullptr ? strchr(begin, ':') : nullptr;
    return end != nullptr ? text_part{begin, static_cast<size_t>(end - begin)} : text_part{"", 0};
}

char* copy_program(char* out, int32_t size, const char* correlation)
{
    const text_part name = third_field(correlation);
    ostrum::copy_text(out, std::min(static_cast<size_t>(size), name.length + 2) - 1, name.begin);
    return out;
}

} // namespace

char* get_program(char* out, int32_t size)
{
    if (out == nullptr || size < 1) {
        return out;
    }
    out[0] = '\0';
    return copy_program(out, size, perf_get_correlation_id());
}

void ostrum::refresh_program(char* program, int32_t size, known_correlation& known)
{
    const char* id = correlation_without_guard();
    if (strcmp(id, known.id) != 0) {
        copy_text(known.id, sizeof(known.id), id);
        program[0] = '\0';
        copy_program(program, size, id);
    }
}
