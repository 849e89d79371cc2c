#ifndef OSTRUM_UTIL_APPEND_BUFFER_H
#define OSTRUM_UTIL_APPEND_BUFFER_H
#include <cstddef>
#include <cstdint>

#include "util/resources.h"

namespace ostrum {

// The text of one flush on its way to an appending descriptor. It is put together in memory and written
// whole, so that the lines of several contexts that share a file are never mixed; a text beyond 1 MiB
// is cut where the caller says that a cut does no harm. When memory is short it is written in small
// pieces instead: nothing is lost, only the protection against mixing.
class append_buffer {
public:
    explicit append_buffer(int fd);

    void add_character(char c);
    void add_text(const char* text);                                                   // null: nothing
    void add_formatted(const char* format, ...) __attribute__((format(printf, 2, 3))); // cut at 2,047
    void add_number(int64_t value);
    void add_unsigned(uint64_t value);
    void add_time(int64_t value_tv); // 9 decimals; "0" for zero

    void cut_here(); // between two records of the top level
    bool finish();   // writes the rest; false when any write failed, now or before
    [[nodiscard]] bool failed() const { return failed_; }
    [[nodiscard]] int64_t bytes_added() const { return bytes_added_; }

private:
    void add(const char* bytes, size_t count);
    [[nodiscard]] bool make_room(size_t count);
    void write_out();

    static constexpr size_t small_bytes = 2048;
    char small_[small_bytes]; // serves until the heap does, and when it does not
    heap_ptr<char> large_;
    char* bytes_ = small_;
    size_t capacity_bytes_ = small_bytes;
    size_t used_bytes_ = 0;
    int64_t bytes_added_ = 0;
    int fd_;
    bool failed_ = false;
};

} // namespace ostrum
#endif
