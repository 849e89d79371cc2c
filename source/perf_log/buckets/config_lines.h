#ifndef OSTRUM_PERF_LOG_BUCKETS_CONFIG_LINES_H
#define OSTRUM_PERF_LOG_BUCKETS_CONFIG_LINES_H
// A configuration file line by line, in bounded memory and time whatever the file is.
#include <cstddef>
#include <cstdint>

#include "util/resources.h"

namespace ostrum {

class config_lines {
public:
    // Opens a regular file without waiting for a FIFO's writer; anything else is refused (EISDIR, EINVAL).
    // False, with errno set, when it cannot be opened.
    bool open(const char* path);

    // The next line, its end removed; of a longer line only out_bytes - 1 characters, the rest is passed
    // over. A NUL in it ends its text. False at the end of the file, or of what can be read of it.
    bool next(char* out, size_t out_bytes);

    [[nodiscard]] int32_t line_number() const { return line_number_; } // of the line last read, from 1
    [[nodiscard]] int error() const { return error_; } // why reading ended early; 0 = it did not

private:
    bool fill();

    unique_fd fd_;
    // No more is read than the file held when it was opened: a log to which this very reading adds its
    // complaints would have no end.
    int64_t unread_bytes_ = 0;
    int32_t line_number_ = 0;
    int error_ = 0;
    size_t used_ = 0;   // of block_
    size_t filled_ = 0; // of block_
    char block_[4096];
};

} // namespace ostrum
#endif
