#ifndef OSTRUM_DATA_FILE_AGGREGATE_H
#define OSTRUM_DATA_FILE_AGGREGATE_H
// Merging copied counter or error records that are equal in chosen key fields.
#include <cstddef>
#include <cstdint>
#include <span>

#include "util/resources.h"

namespace ostrum {

// The key fields of a counter that a query keeps.
enum counter_fields : uint32_t {
    keep_opcode = 1, // opcode and opname
    keep_obj_type = 2,
    keep_program = 4,
    keep_opflags = 8,
    keep_fname = 16,
    keep_lineno = 32,
    keep_db_number = 64
};

enum class field_kind : int32_t { number, text }; // a 64-bit word; a text of text_bytes

struct key_field {
    uint32_t bit; // of the mask that keeps the field
    field_kind kind;
    size_t offset;
};

// What the merging must know of a record type.
struct record_shape {
    size_t bytes;
    std::span<const key_field> keys;
    std::span<const size_t> totals; // offsets of the words that add up
};
extern const record_shape counter_shape; // mask: counter_fields
extern const record_shape error_shape;   // mask: error_counter_bits

// Merges the records in place, in order of first appearance, with the fields that are not kept set to 0 or
// the empty text. Every text must be terminated. Returns how many there are now; 0 = memory was short, and
// the records are as they were. Its cost grows with the number of records, not with its square.
size_t aggregate_records(const record_shape& shape, char* records, size_t count, uint32_t kept);

} // namespace ostrum
#endif
