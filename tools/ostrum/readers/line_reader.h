#ifndef OSTRUM_TOOL_READERS_LINE_READER_H
#define OSTRUM_TOOL_READERS_LINE_READER_H
// Lines of a byte source, with their offsets, in a buffer of fixed size.
#include <cstdint>
#include <string_view>
#include <vector>

#include "readers/byte_source.h"

namespace ostrum_tool {

inline constexpr size_t max_line_bytes = 65'536; // records stay below 1 KiB

struct text_line {
    enum class kind {
        whole,
        unfinished, // the last one of the file, without a newline
        too_long,   // its text is left out
    };
    kind is = kind::whole;
    uint64_t offset = 0;   // of its first byte
    uint64_t end = 0;      // of the byte behind it, newline included
    std::string_view text; // without newline; valid until the next line is taken
};

class line_reader {
public:
    // `offset` is that of the source's first byte.
    explicit line_reader(byte_source& from, uint64_t offset = 0);

    bool next(text_line& line);                                      // false at the end
    [[nodiscard]] uint64_t offset() const { return base_ + begin_; } // of the next line

    // Goes back to the begin of an unfinished line, which the source may have completed meanwhile.
    void put_back(const text_line& line) { begin_ = static_cast<size_t>(line.offset - base_); }

private:
    bool refill(); // false when the source has no more
    bool skip_long_line(text_line& line);

    byte_source& from_;
    std::vector<char> buffer_;
    uint64_t base_;    // offset of buffer_[0]
    size_t begin_ = 0; // of what is not handed out yet
    size_t end_ = 0;
};

} // namespace ostrum_tool
#endif
