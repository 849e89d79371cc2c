#ifndef OSTRUM_TOOL_SERVE_ACCEPT_HEADER_H
#define OSTRUM_TOOL_SERVE_ACCEPT_HEADER_H
#include <string_view>

#include "prometheus/exposition.h"

namespace ostrum_tool {

// What a client that sends this Accept header gets: OpenMetrics when it takes version 1.0.0 no less gladly
// than the older form, else the older form, also when it takes neither.
exposition_format format_for(std::string_view accept);

} // namespace ostrum_tool
#endif
