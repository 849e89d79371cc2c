#ifndef OSTRUM_HOST_ACCESS_RECORD_COUNT_H
#define OSTRUM_HOST_ACCESS_RECORD_COUNT_H
#include "host_abi/host_services.h"

extern "C" {
// Number of records that an operation returned in its output list (null: none). 0 when the error buffer
// (null allowed) holds an error; 1 for the operations on one object; counted for searches and the like.
int32_t count_flist(int32_t opcode, qel_flist_t* list, const qel_errbuf_t* eb);
}
#endif
