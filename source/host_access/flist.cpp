#include "host_access/flist.h"

#include "host_access/bindings.h"
#include "host_access/host_memory.h"
#include "util/diagnostics.h"
#include "util/guarded_write.h"

#include <cstring>
#include <utility>

using ostrum::call_host;
using ostrum::host_bindings;

namespace {

constexpr int32_t failed_conversion = 2;

// Element ids travel as signed 16-bit numbers where values are stored (kept: ids above 32767 wrap).
int32_t stored_element_id(int32_t elem_id)
{
    return static_cast<int16_t>(elem_id);
}

} // namespace

qel_flist_t* p_flist_create(qel_errbuf_t* eb)
{
    return call_host(&host_bindings::flist_create, eb);
}

void p_flist_destroy(qel_flist_t* list, qel_errbuf_t* eb)
{
    call_host(&host_bindings::flist_destroy, list, eb);
}

qel_flist_t* p_flist_copy(const qel_flist_t* list, qel_errbuf_t* eb)
{
    return call_host(&host_bindings::flist_copy, list, eb);
}

void* p_flist_fld_get(qel_flist_t* list, uint32_t field, int32_t elem_id, int32_t optional, qel_errbuf_t* eb)
{
    return call_host(&host_bindings::flist_get, list, field, elem_id, optional, eb);
}

void p_flist_fld_set(qel_flist_t* list, uint32_t field, int32_t elem_id, const void* value, qel_errbuf_t* eb)
{
    call_host(&host_bindings::flist_set, list, field, stored_element_id(elem_id), value, eb);
}

void p_flist_fld_put(qel_flist_t* list, uint32_t field, int32_t elem_id, void* value, qel_errbuf_t* eb)
{
    call_host(&host_bindings::flist_put, list, field, stored_element_id(elem_id), value, eb);
}

int32_t p_flist_elem_count(qel_flist_t* list, uint32_t field, qel_errbuf_t* eb)
{
    return call_host(&host_bindings::flist_elem_count, list, field, eb);
}

qel_flist_t* p_flist_elem_add(qel_flist_t* list, uint32_t field, int32_t elem_id, qel_errbuf_t* eb)
{
    return call_host(&host_bindings::flist_elem_add, list, field, elem_id, eb);
}

void p_flist_to_str(qel_flist_t* list, char** text, int32_t* len, qel_errbuf_t* eb)
{
    call_host(&host_bindings::flist_to_str_masked, list, text, len, eb);
}

qel_flist_t* flist_copy(const qel_flist_t* list)
{
    qel_errbuf_t eb{};
    return list != nullptr ? p_flist_copy(list, &eb) : nullptr;
}

void flist_destroy(qel_flist_t* list)
{
    qel_errbuf_t eb{};
    if (list != nullptr) {
        p_flist_destroy(list, &eb);
    }
}

int32_t flist_to_str(qel_flist_t* list, char** text, int32_t* len)
{
    qel_errbuf_t eb{};
    p_flist_to_str(list, text, len, &eb);
    if (eb.errnum != 0) {
        err_print("flist_to_str : failed converting flist - ecode[%d]\n", static_cast<int>(eb.errnum));
        return failed_conversion;
    }
    return 0;
}

ostrum::host_ptr<char> ostrum::flist_text(qel_flist_t* list)
{
    char* text = nullptr;
    int32_t length = 0;
    const bool converted = list != nullptr && flist_to_str(list, &text, &length) == 0;
    host_ptr<char> owned{text};
    return converted ? std::move(owned) : nullptr;
}

const char* ostrum::shown_flist_text(const host_ptr<char>& text)
{
    return text ? text.get() : "NULL flist ptr\n";
}

void print_flist(FILE* stream, qel_flist_t* list)
{
    if (stream == nullptr) {
        return;
    }
    const ostrum::host_ptr<char> text = ostrum::flist_text(list);
    const char* shown = ostrum::shown_flist_text(text);
    const int fd = fileno(stream);
    if (fd < 0) { // a stream in memory
        fputs(shown, stream);
        ostrum::os::flush_stream(stream);
    } else {
        // Past the stream's buffer: a full disk or a closed pipe must not raise a signal in the host, and a
        // child forked later must find nothing to write a second time.
        ostrum::os::flush_stream(stream);
        ostrum::write_all_guarded(fd, shown, strlen(shown));
    }
}
