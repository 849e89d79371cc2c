#ifndef QEL_CONF_H
#define QEL_CONF_H
#include <string>

#include "conf_lines.h"

namespace qel {

// The entries of a program's section of qel.conf, read from the file at each call.
conf_entries conf_section(const std::string& program);

} // namespace qel
#endif
