#include "util/text.h"

#include "ostrum_util.h"
#include "util/host_text.h"

#include <cstring>

namespace {

constexpr char case_bit = 'a' - 'A';

bool in_range(char c, char first, char last)
{
    return c >= first && c <= last;
}

bool begins_with(const char* text, const char* prefix)
{
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

} // namespace

char* str_toupper(char* text)
{
    for (char* c = text; c != nullptr && *c != '\0'; ++c) {
        *c = in_range(*c, 'a', 'z') ? static_cast<char>(*c - case_bit) : *c;
    }
    return text;
}

char* str_tolower(char* text)
{
    for (char* c = text; c != nullptr && *c != '\0'; ++c) {
        *c = in_range(*c, 'A', 'Z') ? static_cast<char>(*c + case_bit) : *c;
    }
    return text;
}

void ostrum::copy_text(char* out, size_t out_bytes, const char* text)
{
    if (out_bytes == 0) {
        return;
    }
    const size_t length = text != nullptr ? strnlen(text, out_bytes - 1) : 0;
    if (length > 0) {
        memmove(out, text, length); // a field may be copied onto itself
    }
    out[length] = '\0';
}

int32_t trim_err_descr(int32_t errnum, const char* descr, const char* prefix, char* out, int32_t out_size)
{
    static constexpr char unknown[] = "unknown";
    const size_t room = out != nullptr ? ostrum::room_of(out_size) : 0;
    const char* text = descr != nullptr ? descr : "";
    if (strncasecmp(text, unknown, sizeof(unknown) - 1) == 0) {
        return snprintf(out, room, "%d", errnum);
    }
    if (prefix != nullptr && begins_with(text, prefix)) {
        text += strlen(prefix);
    }
    return snprintf(out, room, "%s", text);
}
