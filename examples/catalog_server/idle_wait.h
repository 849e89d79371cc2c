#ifndef CATALOG_IDLE_WAIT_H
#define CATALOG_IDLE_WAIT_H
// The idle wait of every process here: the tracing library's select, which also flushes what is due.
#include <cerrno>
#include <chrono>
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
    // False when the time is over; below 0: wait for ever.
    bool wait(std::chrono::milliseconds time = std::chrono::milliseconds(-1))
    {
        const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
        timeval limit{seconds.count(), std::chrono::microseconds(time - seconds).count()};
        const int ready =
            ostrum_select(highest_ + 1, &set_, nullptr, nullptr, time.count() < 0 ? nullptr : &limit);
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
