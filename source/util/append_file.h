#ifndef OSTRUM_UTIL_APPEND_FILE_H
#define OSTRUM_UTIL_APPEND_FILE_H
#include "util/resources.h"

namespace ostrum {

// Opens a regular file for appending, made when missing; never follows a link, never waits for the other
// end of a FIFO. errno is set when it cannot.
unique_fd open_for_appending(const char* path);

} // namespace ostrum
#endif
