#include "host_access/record_count.h"

#include "host_abi/host_fields.h"
#include "host_abi/host_opcodes.h"
#include "host_access/bindings.h"
#include "host_access/flist.h"

namespace {

// Of what is not counted: these two runs of operations return one record.
int32_t default_count(int32_t opcode)
{
    return (opcode >= 1 && opcode <= 8) || (opcode >= 17 && opcode <= 19) ? 1 : 0;
}

[[gnu::noinline]] int32_t count_elements(int32_t opcode, qel_flist_t* list)
{
    if (!ostrum::contains(ostrum::opcodes_with_results, opcode) ||
        ostrum::host_service(&ostrum::host_bindings::flist_elem_count) == nullptr) {
        return default_count(opcode);
    }
    qel_errbuf_t counting{};
    const int32_t count = p_flist_elem_count(list, ostrum::results_field, &counting);
    if (count != 0) {
        return count;
    }
    return opcode == ostrum::list_text_opcode ? 1 : 0;
}

} // namespace

int32_t count_flist(int32_t opcode, qel_flist_t* list, const qel_errbuf_t* eb)
{
    if (eb != nullptr && eb->errnum != 0) {
        return 0;
    }
    return list != nullptr ? count_elements(opcode, list) : default_count(opcode);
}
