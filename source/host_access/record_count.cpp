#include "host_access/record_count.h"

#include <algorithm>
#include <iterator>

#include "host_abi/host_fields.h"
#include "host_access/bindings.h"
#include "host_access/flist.h"

namespace {

constexpr int32_t counted_opcodes[] = {7, 17, 18, 25, 26, 27, 28, 31}; // their output holds a results array
constexpr int32_t list_of_one_opcode = 31;                             // an empty result counts as one

int32_t default_count(int32_t opcode)
{
    return (opcode >= 1 && opcode <= 8) || (opcode >= 17 && opcode <= 19) ? 1 : 0;
}

bool has_results_array(int32_t opcode)
{
    return std::find(std::begin(counted_opcodes), std::end(counted_opcodes), opcode) !=
           std::end(counted_opcodes);
}

[[gnu::noinline]] int32_t count_elements(int32_t opcode, qel_flist_t* list)
{
    if (!has_results_array(opcode) ||
        ostrum::host_service(&ostrum::host_bindings::flist_elem_count) == nullptr) {
        return default_count(opcode);
    }
    qel_errbuf_t counting{};
    const int32_t count = p_flist_elem_count(list, ostrum::results_field, &counting);
    if (count != 0) {
        return count;
    }
    return opcode == list_of_one_opcode ? 1 : 0;
}

} // namespace

int32_t count_flist(int32_t opcode, qel_flist_t* list, const qel_errbuf_t* eb)
{
    if (eb != nullptr && eb->errnum != 0) {
        return 0;
    }
    return list != nullptr ? count_elements(opcode, list) : default_count(opcode);
}
