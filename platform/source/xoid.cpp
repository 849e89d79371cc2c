// Object identifiers.
#include "xoid.h"

#include "error.h"

qel_xoid_t* qel_xoid_create(int64_t db, const char* type, int64_t id)
{
    return qel::guarded(nullptr, QEL_LOC_NONE, [&] {
        return new qel_xoid{db, id, type != nullptr ? type : ""};
    });
}

void qel_xoid_destroy(qel_xoid_t* x)
{
    delete x;
}

int64_t qel_xoid_get_db(const qel_xoid_t* x)
{
    return x != nullptr ? x->db : 0;
}

int64_t qel_xoid_get_id(const qel_xoid_t* x)
{
    return x != nullptr ? x->id : 0;
}

const char* qel_xoid_get_type(const qel_xoid_t* x)
{
    return x != nullptr ? x->type.c_str() : "";
}
