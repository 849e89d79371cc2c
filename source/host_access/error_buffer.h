#ifndef OSTRUM_HOST_ACCESS_ERROR_BUFFER_H
#define OSTRUM_HOST_ACCESS_ERROR_BUFFER_H
#include <cstdint>

#include "host_abi/host_services.h"

extern "C" {
// Text of an error buffer in `out`, which holds 1024 bytes; with a null `out` in a static buffer, which
// is not thread-safe (the library passes its own). "NO_EBUF_PTR" without a buffer, "NO_ERROR" for code 0,
// "ERROR_CONVERTING_EBUF_TO_STR" when the host cannot render it.
char* get_ebuf_str(qel_errbuf_t* eb, char* out);
void errbuf_sprint(qel_errbuf_t* eb, char** text, int32_t* len, int32_t flags, int32_t* status);
}

namespace ostrum {
inline constexpr int32_t error_text_bytes = 1024;

// For a host call, which takes it as its own. A host without that call may have passed the three words only
// that the library itself reads: location, class and number.
qel_errbuf_t copy_for_host(const qel_errbuf_t& eb);
} // namespace ostrum
#endif
