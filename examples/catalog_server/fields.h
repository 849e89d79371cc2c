#ifndef CATALOG_FIELDS_H
#define CATALOG_FIELDS_H
// The catalogue's data dictionary: what client, connection manager and data manager agree on.
#include <array>
#include <cstdint>

#include "qel_platform.h"

namespace catalog {

// Given by the platform's dictionary; the tracing library reads these four itself.
inline constexpr uint32_t fld_object = 0x7000010;   // what the request is about
inline constexpr uint32_t fld_results = 0x9000033;  // elements found or done
inline constexpr uint32_t fld_search = 0x5000044;   // "select from /package/ATTRIBUTE/$1"
inline constexpr uint32_t fld_template = 0x5000045; // the value of $1; '*' stands for any text

// Our own.
inline constexpr uint32_t fld_opcode = QEL_FLD(QEL_TYPE_INT, 10001);
inline constexpr uint32_t fld_correlation = QEL_FLD(QEL_TYPE_STR, 10002); // host:pid:program:sequence
inline constexpr uint32_t fld_name = QEL_FLD(QEL_TYPE_STR, 10010);
inline constexpr uint32_t fld_version = QEL_FLD(QEL_TYPE_STR, 10011);
inline constexpr uint32_t fld_section = QEL_FLD(QEL_TYPE_STR, 10012);
inline constexpr uint32_t fld_priority = QEL_FLD(QEL_TYPE_STR, 10013);
inline constexpr uint32_t fld_architecture = QEL_FLD(QEL_TYPE_STR, 10014);
inline constexpr uint32_t fld_summary = QEL_FLD(QEL_TYPE_STR, 10015);
inline constexpr uint32_t fld_installed_kib = QEL_FLD(QEL_TYPE_INT, 10016);
inline constexpr uint32_t fld_provides = QEL_FLD(QEL_TYPE_ARRAY, 10020);     // elements: fld_name
inline constexpr uint32_t fld_requirements = QEL_FLD(QEL_TYPE_ARRAY, 10021); // fld_kind, fld_alternatives
inline constexpr uint32_t fld_kind = QEL_FLD(QEL_TYPE_STR, 10022);           // "Depends", "Suggests" ...
inline constexpr uint32_t fld_alternatives = QEL_FLD(QEL_TYPE_STR, 10023);   // "name|name"; one is enough
inline constexpr uint32_t fld_unresolved = QEL_FLD(QEL_TYPE_ARRAY, 10024);   // as fld_requirements
inline constexpr uint32_t fld_linked = QEL_FLD(QEL_TYPE_INT, 10025);
inline constexpr uint32_t fld_limit = QEL_FLD(QEL_TYPE_INT, 10030);
inline constexpr uint32_t fld_requests = QEL_FLD(QEL_TYPE_ARRAY, 10031); // a batch: elements are requests
inline constexpr uint32_t fld_atomic = QEL_FLD(QEL_TYPE_INT, 10032);     // 1: the first failure undoes all
inline constexpr uint32_t fld_errnum = QEL_FLD(QEL_TYPE_INT, 10040);
inline constexpr uint32_t fld_err_class = QEL_FLD(QEL_TYPE_INT, 10041);
inline constexpr uint32_t fld_err_location = QEL_FLD(QEL_TYPE_INT, 10042);
inline constexpr uint32_t fld_err_text = QEL_FLD(QEL_TYPE_STR, 10043);

// Every field that may travel; a field list has no way to ask it what it holds.
inline constexpr std::array all_fields{
    fld_opcode,        fld_correlation, fld_object,       fld_results,  fld_search,       fld_template,
    fld_name,          fld_version,     fld_section,      fld_priority, fld_architecture, fld_summary,
    fld_installed_kib, fld_provides,    fld_requirements, fld_kind,     fld_alternatives, fld_unresolved,
    fld_linked,        fld_limit,       fld_requests,     fld_atomic,   fld_errnum,       fld_err_class,
    fld_err_location,  fld_err_text,
};

// Operations: the platform names those below 50; ours is named in data/qel.conf.
enum opcode : uint32_t {
    op_create = 1,
    op_delete = 2,
    op_read = 3,
    op_read_fields = 4, // only the object identifier, to turn a name into a number
    op_write = 5,
    op_search = 7,
    op_link = 40,
    op_batch = 100,
};

// Error numbers. 37 is the platform's for "looked, and it is not there": inside another operation that
// is an answer and not a failure, and the tracing counts it so.
enum error_number : uint32_t {
    err_not_found = 37,
    err_already_exists = 201,
    err_unresolved = 202, // nothing provides a requirement; what could be linked stays linked
    err_still_needed = 203,
    err_bad_request = 204,
    err_batch_undone = 205,
    err_store = 210,
    err_no_data_manager = 211,
};
// Whether an operation that ends so keeps what it has done.
constexpr bool keeps_its_work(uint32_t errnum)
{
    return errnum == 0 || errnum == err_unresolved;
}
enum error_location : uint32_t { loc_request = 11, loc_operation = 12, loc_store = 13, loc_connection = 14 };

inline constexpr int64_t database_number = 0x0001000000000000; // shown as 1.0.0.0
inline constexpr const char* package_type = "/package";

} // namespace catalog
#endif
