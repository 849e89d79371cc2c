#include "host_access/opcode_names.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "host_abi/host_opcodes.h"
#include "host_access/bindings.h"

namespace {

struct virtual_operation {
    int32_t opcode;
    const char* name;
};
constexpr virtual_operation virtual_operations[] = {{ostrum::overhead_opcode, "VRT_OP_OVERHEAD"},
                                                    {ostrum::elapsed_opcode, "VRT_OP_ELAPSED"},
                                                    {ostrum::context_open_opcode, "VRT_OP_CONTEXT_OPEN"},
                                                    {ostrum::context_close_opcode, "VRT_OP_CONTEXT_CLOSE"},
                                                    {ostrum::transaction_opcode, "VRT_OP_TRANSACTION"}};

bool is_empty(const char* text)
{
    return text == nullptr || *text == '\0';
}

const char* host_name(int32_t opcode)
{
    return opcode > 0 ? ostrum::call_host(&ostrum::host_bindings::opcode_to_opname, opcode) : nullptr;
}

} // namespace

const char* get_opname(int32_t opcode, const char* fallback)
{
    const auto* row = std::find_if(std::begin(virtual_operations), std::end(virtual_operations),
                                   [opcode](const virtual_operation& v) { return v.opcode == opcode; });
    if (row != std::end(virtual_operations)) {
        return row->name;
    }
    constexpr char unknown[] = "unknown";
    const char* name = host_name(opcode);
    const bool known = name != nullptr && strncmp(name, unknown, sizeof(unknown) - 1) != 0;
    if (known) {
        return name;
    }
    if (!is_empty(fallback)) {
        return fallback;
    }
    return name != nullptr ? name : "unknown_operation";
}

int32_t get_opnum(const char* text)
{
    if (is_empty(text)) {
        return 0;
    }
    const long number = strtol(text, nullptr, 10);
    if (number != 0 && number >= INT32_MIN && number <= INT32_MAX) {
        return static_cast<int32_t>(number);
    }
    return ostrum::call_host(&ostrum::host_bindings::opname_to_opcode, text);
}
