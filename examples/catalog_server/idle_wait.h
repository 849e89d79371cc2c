#ifndef CATALOG_IDLE_WAIT_H
#define CATALOG_IDLE_WAIT_H
// The idle wait of every process here: the tracing library's select, which also flushes what is due.
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include <sys/select.h>

#include "connection.h"
#include "ostrum.h"

namespace catalog {

class idle_wait {
public:
    idle_wait() { FD_ZERO(&set_); }

    void add(const unique_fd& fd)
    {
        if (fd.get() < 0 || fd.get() >= FD_SETSIZE)
            throw std::out_of_range("descriptor beyond what select can wait for");
        FD_SET(fd.get(), &set_);
        highest_ = fd.get() > highest_ ? fd.get() : highest_;
    }
    // False when the time (seconds; below 0: for ever) is over.
    bool wait(int seconds = -1)
    {
        timeval limit{seconds, 0};
        const int ready =
            ostrum_select(highest_ + 1, &set_, nullptr, nullptr, seconds < 0 ? nullptr : &limit);
        if (ready < 0)
            throw std::system_error(errno, std::generic_category(), "select");
        return ready > 0;
    }
    [[nodiscard]] bool ready(const unique_fd& fd) const { return FD_ISSET(fd.get(), &set_); }

private:
    fd_set set_;
    int highest_ = -1;
};

} // namespace catalog
#endif
