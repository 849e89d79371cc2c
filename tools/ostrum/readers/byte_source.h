#ifndef OSTRUM_TOOL_READERS_BYTE_SOURCE_H
#define OSTRUM_TOOL_READERS_BYTE_SOURCE_H
// The bytes of a file, of standard input, or of what a gzip or zstd file holds, in order.
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace ostrum_tool {

class byte_source {
public:
    byte_source() = default;
    virtual ~byte_source() = default;
    byte_source(const byte_source&) = delete;
    byte_source& operator=(const byte_source&) = delete;

    // Up to so many bytes; 0 at the end, though a file may have grown when asked again. Throws input_error.
    virtual size_t read(std::span<char> into) = 0;
};

// Up to the end, as much as fits; returns the number of bytes.
size_t read_fully(byte_source& from, std::span<char> into);

struct source_facts {
    bool compressed = false;
    bool regular = false;    // a plain file: its size is known, and it can be read from any offset
    uint64_t size_bytes = 0; // as stored; 0 unless it is a file
};

// "-" is standard input. What is compressed is told by its first bytes, not by its name.
// Throws input_error: no such file, no permission, a directory.
source_facts look_at_source(const std::string& path);
std::unique_ptr<byte_source> open_source(const std::string& path, uint64_t from_offset = 0);

// A plain file as it is stored. Throws input_error for anything else, without waiting for it.
struct plain_file {
    std::unique_ptr<byte_source> source;
    uint64_t size_bytes = 0;
};
plain_file open_plain(const std::string& path);

} // namespace ostrum_tool
#endif
