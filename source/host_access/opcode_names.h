#ifndef OSTRUM_HOST_ACCESS_OPCODE_NAMES_H
#define OSTRUM_HOST_ACCESS_OPCODE_NAMES_H
#include <cstdint>

extern "C" {
// Name of an operation: the fixed names of the virtual operations -1, -2, -4, -5 and -6, else the
// host's, else the fallback when it is not empty, else "unknown_operation". Never null; borrowed.
const char* get_opname(int32_t opcode, const char* fallback);
// Number of an operation given as a number or a name; 0 when it is neither.
int32_t get_opnum(const char* text);
}

namespace ostrum {

// An operation's own name or, where it is null or empty, what get_opname() makes of its number.
inline const char* name_of(const char* opname, int32_t opcode)
{
    return opname != nullptr && *opname != '\0' ? opname : get_opname(opcode, nullptr);
}

} // namespace ostrum
#endif
