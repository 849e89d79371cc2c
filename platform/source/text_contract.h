#ifndef QEL_TEXT_CONTRACT_H
#define QEL_TEXT_CONTRACT_H
#include <cstring>
#include <string>

#include "qel_platform.h"

namespace qel {

// Hands a text out under the contract of the services that render one (see the public header): returns
// an error number.
inline uint32_t hand_out_text(const std::string& rendered, char** text, int32_t* len)
{
    const auto length = static_cast<int32_t>(rendered.size());
    const int32_t capacity = *len;
    *len = length;
    if (*text == nullptr) {
        *text = strdup(rendered.c_str());
        return *text != nullptr ? QEL_ERR_NONE : QEL_ERR_NO_MEM;
    }
    if (length > capacity) {
        return QEL_ERR_TOO_SMALL;
    }
    memcpy(*text, rendered.c_str(), rendered.size() + 1);
    return QEL_ERR_NONE;
}

} // namespace qel
#endif
