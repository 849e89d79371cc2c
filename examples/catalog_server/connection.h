#ifndef CATALOG_CONNECTION_H
#define CATALOG_CONNECTION_H
// Sockets and messages. Failures of the system are std::system_error, bad messages wire_error.
#include <cstdint>
#include <string>
#include <utility>

#include "field_list.h"

namespace catalog {

class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(unique_fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    unique_fd& operator=(unique_fd&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~unique_fd();
    [[nodiscard]] int get() const { return fd_; }

private:
    int fd_ = -1;
};

unique_fd listen_on_loopback(uint16_t port); // 0: a free port
uint16_t local_port(const unique_fd& listener);
unique_fd connect_to_loopback(uint16_t port);
unique_fd listen_on_path(const std::string& path); // replaces a socket left over
unique_fd connect_to_path(const std::string& path);

// The next waiting connection; invalid (-1) when it went away again.
unique_fd accept_connection(const unique_fd& listener);

// Both wait at most 10 s for the other side (send and receive each as a whole).
void send_message(const unique_fd& socket, qel_flist_t* list);
list_ptr receive_message(const unique_fd& socket); // null: the other side has closed
// As they stand, for a client that wants to misbehave.
void send_bytes(const unique_fd& socket, const void* bytes, size_t count);

} // namespace catalog
#endif
