#ifndef CATALOG_WIRE_H
#define CATALOG_WIRE_H
// Field lists as bytes. A message is one frame:
//
//   "CAT1"  u32 length of the body  body
//   body = list = u16 number of fields, then for each: u32 field number and the value by its type:
//     integer      i32
//     text         u32 length, bytes without a zero byte
//     identifier   i64 database, i64 id, u32 length and bytes of the type
//     array        u32 number of elements, each a list
//
// Numbers are little-endian. The reader trusts nothing: every length is held against the bytes left.
#include <cstdint>
#include <span>
#include <stdexcept>
#include <vector>

#include "field_list.h"

namespace catalog {

inline constexpr size_t frame_header_bytes = 8;
inline constexpr size_t max_body_bytes = 4u << 20;
inline constexpr uint64_t max_elements = 20'000;
inline constexpr int max_nesting = 8;

struct wire_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The whole frame; wire_error when the list is too large or too deep, or holds a type that does not travel.
std::vector<uint8_t> encode_frame(qel_flist_t* list);

// Length of the body that follows this header; wire_error when it is not a header or asks too much.
size_t body_length(std::span<const uint8_t, frame_header_bytes> header);

// The list in a body; wire_error for anything that encode_frame does not write.
list_ptr decode_body(std::span<const uint8_t> body);

} // namespace catalog
#endif
