#ifndef QEL_FLIST_H
#define QEL_FLIST_H
#include <map>
#include <memory>
#include <string>
#include <variant>

#include "decimal.h"
#include "xoid.h"

namespace qel {

using list_ptr = std::unique_ptr<qel_flist>;
// One alternative per kind of field; which one a field has follows from the type in its number.
using value = std::variant<int32_t, int64_t, std::string, qel_xoid, nmu_decimal, list_ptr>;
using elements = std::map<int32_t, value>; // by element id; fields that are no arrays have element 0 only

} // namespace qel

struct qel_flist {
    std::map<uint32_t, qel::elements> fields; // maps: pointers into them stay valid while others change
};
#endif
