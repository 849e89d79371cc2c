#ifndef OSTRUM_UTIL_APPEND_FILE_H
#define OSTRUM_UTIL_APPEND_FILE_H
#include "util/resources.h"

namespace ostrum {

// Opens a regular file for appending, made when missing; never follows a link, never waits for the other
// end of a FIFO. errno is set when it cannot.
unique_fd open_for_appending(const char* path);

// Whether the last line of the file has no end: a process was killed while it wrote. False also where that
// cannot be told.
bool ends_within_line(const char* path);

} // namespace ostrum
#endif
