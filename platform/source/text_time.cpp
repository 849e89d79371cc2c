// The clock and the text helpers.
#include "qel_platform.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

time_t qel_virtual_time(time_t* out)
{
    return time(out);
}

int qel_snprintf(char* buf, size_t size, const char* fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    const int length = vsnprintf(buf, size, fmt, arguments);
    va_end(arguments);
    return length;
}

size_t qel_strlcpy(char* dst, const char* src, size_t size)
{
    const size_t length = strlen(src);
    if (size > 0) {
        const size_t copied = length < size ? length : size - 1;
        memcpy(dst, src, copied);
        dst[copied] = '\0';
    }
    return length;
}

char* qel_i64toa(int64_t v, char* buf, size_t size)
{
    snprintf(buf, size, "%" PRId64, v);
    return buf;
}
