#ifndef OSTRUM_HOST_ABI_HOST_FIELDS_H
#define OSTRUM_HOST_ABI_HOST_FIELDS_H
// Field numbers of the platform's data dictionary that this library reads or writes: the type in bits 24 to
// 31, the number below.
#include <cstdint>

namespace ostrum {

// What an operation is about.
inline constexpr uint32_t xoid_field = 0x7000010;
inline constexpr uint32_t search_text_field = 0x5000044;
inline constexpr uint32_t search_template_field = 0x5000045;
inline constexpr uint32_t list_text_field = 0x50023FB;
inline constexpr uint32_t results_field = 0x9000033;

// The timings of an operation, in its output list.
inline constexpr uint32_t perf_flist_field = 0xA0F4246; // list: all of it
inline constexpr uint32_t perf_nodes_field = 0x9000376; // array: the operations, each with those it called
inline constexpr uint32_t perf_opcode_field = 0x1000170;
inline constexpr uint32_t perf_opname_field = 0x5000011;
inline constexpr uint32_t perf_program_field = 0x5000043;
inline constexpr uint32_t perf_obj_type_field = 0x500233B;
inline constexpr uint32_t perf_fname_field = 0x50001F4;
inline constexpr uint32_t perf_lineno_field = 0x10F44AD;
inline constexpr uint32_t perf_flags_field = 0x1000034;
inline constexpr uint32_t perf_total_field = 0xE0F44AE; // decimal, seconds
inline constexpr uint32_t perf_calls_field = 0xE0F44B9; // decimals, counts
inline constexpr uint32_t perf_errors_field = 0xE0F44B7;
inline constexpr uint32_t perf_recs_field = 0xE0F44B8;
inline constexpr uint32_t perf_user_cpu_field = 0xE0F44BB; // decimals, seconds
inline constexpr uint32_t perf_sys_cpu_field = 0xE0F44BC;

} // namespace ostrum
#endif
