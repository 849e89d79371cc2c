#ifndef QEL_CONF_H
#define QEL_CONF_H
#include <string>
#include <utility>
#include <vector>

namespace qel {

using conf_entries = std::vector<std::pair<std::string, std::string>>; // key, value; in file order

// The entries of a program's section of qel.conf, read from the file at each call.
conf_entries conf_section(const std::string& program);

} // namespace qel
#endif
