#ifndef CATALOG_OPERATIONS_H
#define CATALOG_OPERATIONS_H
// The data manager's numbered operations. Each takes a request and gives a reply, both field lists, and
// calls others on the way: a batch creates and links, a link reads, a search reads.
#include <cstdint>
#include <string>
#include <unordered_map>

#include "catalog_store.h"
#include "field_list.h"
#include "process_figures.h"
#include "traced.h"

namespace catalog {

struct operation_result {
    list_ptr reply;       // null after a failure that left nothing to say
    qel_errbuf_t error{}; // number 0: done
    std::string error_text{};
    bool from_cache = false;
};

// One thread's means of running operations.
struct operation_context {
    catalog_store& store;
    service_figures& figures;
    bool in_transaction = false;
    // Names already resolved in the transaction that is open; emptied with it.
    std::unordered_map<std::string, int64_t> resolved{};
};

// The reply, empty where there is none, with the error, if any, in it.
list_ptr reply_of(operation_result result);

// Name of an operation of ours; null for a number that is none.
const char* operation_name(uint32_t opcode);

// Runs one operation, traced; inside a transaction of its own when none is open. Throws nothing that has
// to do with the request or the database: those come back as the result's error.
operation_result run_operation(operation_context& context, uint32_t opcode, qel_flist_t* request,
                               call_site where = call_site::here());

// The whole answer to a message from outside: takes over its correlation, runs it and puts the error, if
// any, into the reply.
list_ptr answer(catalog_store& store, service_figures& figures, qel_flist_t* request);

} // namespace catalog
#endif
