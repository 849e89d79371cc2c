#include "host_access/error_buffer.h"

#include "host_access/bindings.h"
#include "host_access/host_memory.h"
#include "util/text.h"

using namespace ostrum;

namespace {

char default_text[error_text_bytes];

// False when the host cannot, or is not there.
bool render(qel_errbuf_t* eb, char* out)
{
    char* text = nullptr;
    int32_t len = 0;
    int32_t status = 0;
    errbuf_sprint(eb, &text, &len, 0, &status);
    const bool rendered = status == 0 && text != nullptr;
    if (rendered) {
        copy_text(out, error_text_bytes, text);
    }
    release_host_memory(text);
    return rendered;
}

} // namespace

char* get_ebuf_str(qel_errbuf_t* eb, char* out)
{
    char* text = out != nullptr ? out : default_text;
    if (eb == nullptr) {
        copy_text(text, error_text_bytes, "NO_EBUF_PTR");
    } else if (eb->errnum == 0) {
        copy_text(text, error_text_bytes, "NO_ERROR");
    } else if (!render(eb, text)) {
        copy_text(text, error_text_bytes, "ERROR_CONVERTING_EBUF_TO_STR");
    }
    return text;
}

void errbuf_sprint(qel_errbuf_t* eb, char** text, int32_t* len, int32_t flags, int32_t* status)
{
    *status = 0;
    if (eb != nullptr) {
        ostrum::call_host(&ostrum::host_bindings::errbuf_sprint, eb, text, len, flags, status);
    }
}

qel_errbuf_t ostrum::copy_for_host(const qel_errbuf_t& eb)
{
    if (host_service(&host_bindings::errbuf_sprint) != nullptr) {
        return eb;
    }
    qel_errbuf_t copy{};
    copy.location = eb.location;
    copy.err_class = eb.err_class;
    copy.errnum = eb.errnum;
    return copy;
}
