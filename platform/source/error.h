#ifndef QEL_ERROR_H
#define QEL_ERROR_H
// Error reporting of the services. A null error buffer is allowed everywhere: the error is dropped.
#include <exception>

#include "qel_platform.h"

namespace qel {

struct error {
    uint32_t location;
    uint32_t errnum;
    uint32_t field = 0;
    int32_t elem_id = 0;
};

inline void raise(qel_errbuf_t* eb, const error& e)
{
    if (eb != nullptr) {
        *eb = {};
        eb->location = e.location;
        eb->err_class = QEL_CLASS_SYSTEM;
        eb->errnum = e.errnum;
        eb->field = e.field;
        eb->elem_id = e.elem_id;
    }
}

// Runs the body of a service. Nothing is thrown in them but failed allocations, which become
// QEL_ERR_NO_MEM and the zero value of the result: no exception may reach a C caller.
template <typename Body>
auto guarded(qel_errbuf_t* eb, uint32_t location, Body body) noexcept -> decltype(body())
{
    try {
        return body();
    } catch (const std::exception&) {
        raise(eb, {location, QEL_ERR_NO_MEM});
        return decltype(body())();
    }
}

} // namespace qel
#endif
