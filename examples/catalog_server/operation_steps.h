#ifndef CATALOG_OPERATION_STEPS_H
#define CATALOG_OPERATION_STEPS_H
// What each operation does, without its frame (tracing, transaction, errors: operations.cpp).
#include <stdexcept>

#include "operations.h"

namespace catalog {

// Ends the operation with an error of the application.
struct operation_failure : std::runtime_error {
    operation_failure(uint32_t number, const std::string& text, uint32_t field_number = 0);
    qel_errbuf_t error;
};

operation_result create_package(operation_context& context, qel_flist_t* request);
operation_result delete_package(operation_context& context, qel_flist_t* request);
operation_result read_package(operation_context& context, qel_flist_t* request);
operation_result read_identifier(operation_context& context, qel_flist_t* request);
operation_result write_package(operation_context& context, qel_flist_t* request);
operation_result search_packages(operation_context& context, qel_flist_t* request);
operation_result link_requirements(operation_context& context, qel_flist_t* request);
operation_result run_batch(operation_context& context, qel_flist_t* request);

} // namespace catalog
#endif
