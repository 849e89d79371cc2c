#ifndef OSTRUM_HOST_ABI_HOST_OPCODES_H
#define OSTRUM_HOST_ABI_HOST_OPCODES_H
// Numbers of the platform that this library treats in a way of their own: operations, errors, and a bit of
// what hooks are told. Kept as they are: what else they mean is the platform's matter.
#include <cstddef>
#include <cstdint>

namespace ostrum {

// Operations of the library itself rather than of the host.
enum virtual_opcode : int32_t {
    overhead_opcode = -1,
    elapsed_opcode = -2,
    context_open_opcode = -4,
    context_close_opcode = -5,
    transaction_opcode = -6
};
inline constexpr int32_t traced_virtual_opcodes[] = {context_open_opcode, context_close_opcode,
                                                     transaction_opcode};

// Operations whose object is told by a text or by what they search for.
inline constexpr int32_t list_text_opcode = 31; // an empty result of it counts as one record, too
inline constexpr int32_t search_opcodes[] = {7, 17, 25};

// Operations whose output holds an array of results.
inline constexpr int32_t opcodes_with_results[] = {7, 17, 18, 25, 26, 27, 28, list_text_opcode};

// The transaction cache serves operations below the first one, but for those that change or search data.
inline constexpr int32_t first_uncached_opcode = 50;
inline constexpr int32_t uncached_opcodes[] = {22, 23, 24, 30, 34, 38};

// Errors that are part of normal work below the outermost level.
inline constexpr uint32_t usual_nested_errors[] = {37, 120};

// In the end flags of an operation: it was served by the transaction cache.
inline constexpr uint32_t end_flag_cache_hit = 0x4;

template <typename Number, size_t Count>
[[nodiscard]] constexpr bool contains(const Number (&list)[Count], Number number)
{
    for (const Number listed : list) {
        if (listed == number) {
            return true;
        }
    }
    return false;
}

} // namespace ostrum
#endif
