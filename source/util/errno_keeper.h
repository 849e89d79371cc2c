#ifndef OSTRUM_UTIL_ERRNO_KEEPER_H
#define OSTRUM_UTIL_ERRNO_KEEPER_H
#include <cerrno>

namespace ostrum {

// Puts errno back at the end of the scope: neither the host nor whoever reports an error may see that the
// library made calls of its own.
class errno_keeper {
public:
    errno_keeper() : error_(errno) {}
    ~errno_keeper() { errno = error_; }
    errno_keeper(const errno_keeper&) = delete;
    errno_keeper& operator=(const errno_keeper&) = delete;

private:
    int error_;
};

} // namespace ostrum
#endif
