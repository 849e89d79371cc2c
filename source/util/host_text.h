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

// A caller's length as the size that snprintf expects; a negative one is no room at all.
inline size_t room_of(int32_t length)
{
    return length > 0 ? static_cast<size_t>(length) : 0;
}

} // namespace ostrum
#endif
