#ifndef QEL_XOID_H
#define QEL_XOID_H
#include <string>

#include "qel_platform.h"

struct qel_xoid {
    int64_t db = 0;
    int64_t id = 0;
    std::string type;
};
#endif
