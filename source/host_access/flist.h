#ifndef OSTRUM_HOST_ACCESS_FLIST_H
#define OSTRUM_HOST_ACCESS_FLIST_H
// Field lists, reached only through the bound host services. A null list is valid and means no list.
#include "host_abi/host_services.h"
#include "host_access/host_memory.h"

#include <cstdint>
#include <cstdio>

extern "C" {
// The host's calls, with its contracts: an error goes into *eb, which the caller has zeroed. Without a
// host they do nothing and return null or 0.
qel_flist_t* p_flist_create(qel_errbuf_t* eb);
void p_flist_destroy(qel_flist_t* list, qel_errbuf_t* eb);
// A copy, here and below: kept on purpose, nothing here calls it.
qel_flist_t* p_flist_copy(const qel_flist_t* list, qel_errbuf_t* eb);
void* p_flist_fld_get(qel_flist_t* list, uint32_t field, int32_t elem_id, int32_t optional, qel_errbuf_t* eb);
// The two that store values pass the element id as a signed 16-bit number (ids above 32767 wrap; kept).
void p_flist_fld_set(qel_flist_t* list, uint32_t field, int32_t elem_id, const void* value, qel_errbuf_t* eb);
void p_flist_fld_put(qel_flist_t* list, uint32_t field, int32_t elem_id, void* value, qel_errbuf_t* eb);
int32_t p_flist_elem_count(qel_flist_t* list, uint32_t field, qel_errbuf_t* eb);
qel_flist_t* p_flist_elem_add(qel_flist_t* list, uint32_t field, int32_t elem_id, qel_errbuf_t* eb);
void p_flist_to_str(qel_flist_t* list, char** text, int32_t* len, qel_errbuf_t* eb);

// Without an error buffer: what the host reports is dropped.
qel_flist_t* flist_copy(const qel_flist_t* list); // the caller's; null for a null list and on failure
void flist_destroy(qel_flist_t* list);
// *text: the host's text, which the caller releases as a host_ptr, and *len its length. Returns 0, or 2
// after one diagnostic line when the host fails. Without a host: 0 with a null text.
int32_t flist_to_str(qel_flist_t* list, char** text, int32_t* len);
// Writes the masked text to the stream and flushes it; "NULL flist ptr\n" for a null list or no text.
void print_flist(FILE* stream, qel_flist_t* list);
}

namespace ostrum {

// The masked text; null for a null list, without a host and, after one diagnostic line, when the host fails.
host_ptr<char> flist_text(qel_flist_t* list);
// What is shown of it: "NULL flist ptr\n" without one.
const char* shown_flist_text(const host_ptr<char>& text);

} // namespace ostrum
#endif
