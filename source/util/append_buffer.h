#ifndef OSTRUM_UTIL_APPEND_BUFFER_H
#define OSTRUM_UTIL_APPEND_BUFFER_H
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "util/resources.h"

namespace ostrum {

// The text of one flush on its way to an appending descriptor. It is put together in memory and written
// whole, so that the lines of several contexts that share a file are never mixed; a text beyond 1 MiB
// is cut where the caller says that a cut does no harm. When memory is short it is written in small
// pieces instead: nothing is lost, only the protection against mixing.
class append_buffer {
public:
    static constexpr size_t most_in_a_row = 2048;

    explicit append_buffer(int fd) : fd_(fd) {}
    ~append_buffer();
    append_buffer(const append_buffer&) = delete;
    append_buffer& operator=(const append_buffer&) = delete;

    void add(std::string_view text);
    void add_character(char c);
    void add_text(const char* text);                                                   // null: nothing
    void add_formatted(const char* format, ...) __attribute__((format(printf, 2, 3))); // cut at 2,047
    void add_number(int64_t value);
    void add_unsigned(uint64_t value);

    // For writers that put their characters there themselves: `count` of them in a row, at most
    // most_in_a_row; then the end of those that are used.
    char* room_for(size_t count);
    void filled_to(const char* end);

    void cut_here(); // between two records of the top level
    bool finish();   // writes the rest; false when any write failed, now or before
    [[nodiscard]] bool failed() const { return failed_; }
    [[nodiscard]] int64_t bytes_added() const { return bytes_added_; }

private:
    [[nodiscard]] bool has_room(size_t count) const { return capacity_bytes_ - used_bytes_ >= count; }
    bool take_kept(size_t count);
    bool grow(size_t count); // so that it has room for them; false when memory is short
    void write_out();

    char small_[most_in_a_row]; // serves until the heap does, and when it does not
    heap_ptr<char> large_;
    char* bytes_ = small_;
    size_t capacity_bytes_ = most_in_a_row;
    size_t used_bytes_ = 0;
    int64_t bytes_added_ = 0;
    int fd_;
    bool failed_ = false;
};

} // namespace ostrum
#endif
