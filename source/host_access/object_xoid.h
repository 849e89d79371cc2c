#ifndef OSTRUM_HOST_ACCESS_OBJECT_XOID_H
#define OSTRUM_HOST_ACCESS_OBJECT_XOID_H
// What the object identifier in an operation's field list says.
#include <cstdint>

#include "host_abi/host_services.h"

extern "C" {
// Database number of the list's object identifier, or 0. Kept on purpose: nothing here calls it.
int64_t ostrum_get_db_num(qel_flist_t* list);

// The object id (0 without one). *db, null allowed, receives its database number; text, of text_len bytes,
// a description: the object's type, or for searches what is searched for.
int64_t __ostrum_get_object_xoid(int32_t opcode, qel_flist_t* list, int64_t* db, char* text,
                                 int32_t text_len);

// "1.0.0.1": the database number in four groups of 16 bits, all but the first shown as signed.
char* perf_dbno_to_str(char* text, int32_t text_len, int64_t db_number);
}
#endif
