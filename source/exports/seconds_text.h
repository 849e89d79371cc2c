#ifndef OSTRUM_EXPORTS_SECONDS_TEXT_H
#define OSTRUM_EXPORTS_SECONDS_TEXT_H
#include "util/time_value.h"

namespace ostrum {

// A duration for the getters that give a text: "seconds.nanoseconds"; null, of a null record, is the empty
// text. Returns buf.
inline char* seconds_text(const int64_t* duration_tv, char* buf, int32_t len)
{
    if (duration_tv != nullptr) {
        return ostrum_fmt_tv(*duration_tv, buf, len, format_seconds_ns);
    }
    if (buf != nullptr && len > 0) {
        buf[0] = '\0';
    }
    return buf;
}

} // namespace ostrum
#endif
