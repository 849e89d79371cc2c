#ifndef OSTRUM_UTIL_GUARDED_WRITE_H
#define OSTRUM_UTIL_GUARDED_WRITE_H
#include <cstddef>

namespace ostrum {

// Writes all bytes to the descriptor, going on after interruptions and short writes. A file-size limit
// or a closed pipe gives an error instead of the signal (SIGXFSZ, SIGPIPE) that would end the host: the
// signal is blocked in this thread meanwhile and taken out again if this write raised it.
// A standard stream that takes nothing is waited for for 0.1 s and then, until it takes something again, not
// at all: EAGAIN.
// Returns false, with errno set, when not all bytes could be written; `written`, null allowed, receives how
// many were. Any thread.
bool write_all_guarded(int fd, const void* bytes, size_t count, size_t* written = nullptr);

} // namespace ostrum
#endif
