#ifndef OSTRUM_DATA_FILE_ERRNO_KEEPER_H
#define OSTRUM_DATA_FILE_ERRNO_KEEPER_H
#include <cerrno>

namespace ostrum {

// The caller's errno, put back at the end of the scope: the hooks add to the data file, and their host
// must not see that they did.
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
