#ifndef OSTRUM_UTIL_TEXT_H
#define OSTRUM_UTIL_TEXT_H
#include <cstddef>

extern "C" {
// Change the case of ASCII letters in place, whatever the locale; return the same text, null for null. The
// second is kept on purpose: nothing here calls it.
char* str_toupper(char* text);
char* str_tolower(char* text);
}

namespace ostrum {

// Whatever the locale.
inline bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

inline const char* text_or_empty(const char* text)
{
    return text != nullptr ? text : "";
}

// Copies a text into a fixed field: cut to out_bytes - 1 characters, always terminated; null is the empty
// text. Bytes behind the terminator are left as they are; a field of no bytes is left alone.
void copy_text(char* out, size_t out_bytes, const char* text);

} // namespace ostrum
#endif
