#ifndef OSTRUM_UTIL_HOST_TEXT_H
#define OSTRUM_UTIL_HOST_TEXT_H
// The platform's text services where one is loaded, else the C library's.
#include "host_abi/host_services.h"

#include <cstdio>

namespace ostrum {

// Contract of snprintf, whose role it takes: text_printer()(out, out_bytes, "%d", n).
typedef int (*text_printer_fn)(char* out, size_t out_bytes, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

inline text_printer_fn text_printer()
{
    return qel_snprintf != nullptr ? qel_snprintf : snprintf;
}

// Contract of strlcpy: returns the length of the source; cuts; always terminates what has room.
inline size_t host_strlcpy(char* out, const char* text, size_t out_bytes)
{
    if (qel_strlcpy != nullptr) {
        return qel_strlcpy(out, text != nullptr ? text : "", out_bytes);
    }
    return static_cast<size_t>(snprintf(out, out_bytes, "%s", text != nullptr ? text : ""));
}

// The number in decimal; returns the buffer.
inline char* host_i64toa(int64_t value, char* out, size_t out_bytes)
{
    if (qel_i64toa != nullptr) {
        return qel_i64toa(value, out, out_bytes);
    }
    snprintf(out, out_bytes, "%ld", value);
    return out;
}

// A caller's length as the size that snprintf expects; a negative one is no room at all.
inline size_t room_of(int32_t length)
{
    return length > 0 ? static_cast<size_t>(length) : 0;
}

} // namespace ostrum
#endif
