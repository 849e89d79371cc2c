#ifndef OSTRUM_HOST_ACCESS_OPCODE_LIST_H
#define OSTRUM_HOST_ACCESS_OPCODE_LIST_H
#include <cstdint>

#include "util/resources.h"

extern "C" {
// Rewrites a list of opcode numbers and names, separated by ",", as decimal numbers joined by ",".
// 0 (also when the result was cut, after one diagnostic line); -1 bad output buffer; -2 an item that is
// too long or unknown, after one diagnostic line; -4 out of memory.
int32_t normalize_oplist(char* out, int32_t out_size, const char* list);
}

namespace ostrum {

// The opcodes whose field lists are traced; no entries = all.
struct trace_opcode_list {
    heap_ptr<int32_t> opcodes;
    int32_t count = 0;
};

// Reads the "trace_opcodes" text: decimal numbers joined by ","; malformed elements are left out.
trace_opcode_list build_opcode_trace_list(const char* text);

} // namespace ostrum
#endif
