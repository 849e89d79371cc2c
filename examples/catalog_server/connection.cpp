#include "connection.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "wire.h"

namespace catalog {
namespace {

using clock = std::chrono::steady_clock;
constexpr std::chrono::seconds patience{10};
constexpr int backlog = 64;

[[noreturn]] void fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

unique_fd new_socket(int family)
{
    unique_fd fd{socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (fd.get() < 0)
        fail("socket");
    return fd;
}

sockaddr_in loopback(uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

sockaddr_un path_address(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw std::invalid_argument("socket path too long: " + path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

// The socket interface takes every kind of address through this one type.
template <class Address>
const sockaddr* as_address(const Address& address)
{
    return reinterpret_cast<const sockaddr*>(&address);
}

template <class Address>
void start_listening(const unique_fd& fd, const Address& address)
{
    if (bind(fd.get(), as_address(address), sizeof address) != 0)
        fail("bind");
    if (listen(fd.get(), backlog) != 0)
        fail("listen");
}

// Waits until the socket can be read or written; false when the deadline has passed.
bool wait_for(const unique_fd& socket, short events, clock::time_point deadline)
{
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now()).count();
        pollfd entry{socket.get(), events, 0};
        const int ready = poll(&entry, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready >= 0)
            return ready > 0;
        if (errno != EINTR)
            fail("poll");
    }
}

// Fills the buffer; the number of bytes read, fewer than asked only at the end of the stream.
size_t receive_exactly(const unique_fd& socket, uint8_t* bytes, size_t count, clock::time_point deadline)
{
    size_t done = 0;
    while (done < count) {
        if (!wait_for(socket, POLLIN, deadline))
            throw wire_error("the other side went silent inside a message");
        const ssize_t got = recv(socket.get(), bytes + done, count - done, MSG_DONTWAIT);
        if (got == 0)
            return done;
        if (got > 0)
            done += static_cast<size_t>(got);
        else if (errno != EINTR && errno != EAGAIN)
            fail("recv");
    }
    return done;
}

} // namespace

unique_fd::~unique_fd()
{
    if (fd_ >= 0)
        close(fd_);
}

unique_fd listen_on_loopback(uint16_t port)
{
    unique_fd fd = new_socket(AF_INET);
    const int yes = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    start_listening(fd, loopback(port));
    return fd;
}

uint16_t local_port(const unique_fd& listener)
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
        fail("getsockname");
    return ntohs(address.sin_port);
}

unique_fd connect_to_loopback(uint16_t port)
{
    unique_fd fd = new_socket(AF_INET);
    const sockaddr_in address = loopback(port);
    if (connect(fd.get(), as_address(address), sizeof address) != 0)
        fail("connect to port " + std::to_string(port));
    return fd;
}

unique_fd listen_on_path(const std::string& path)
{
    unique_fd fd = new_socket(AF_UNIX);
    unlink(path.c_str());
    start_listening(fd, path_address(path));
    return fd;
}

unique_fd connect_to_path(const std::string& path)
{
    unique_fd fd = new_socket(AF_UNIX);
    const sockaddr_un address = path_address(path);
    if (connect(fd.get(), as_address(address), sizeof address) != 0)
        fail("connect to " + path);
    return fd;
}

unique_fd accept_connection(const unique_fd& listener)
{
    return unique_fd{accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC)};
}

void send_bytes(const unique_fd& socket, const void* bytes, size_t count)
{
    const auto deadline = clock::now() + patience;
    const auto* next = static_cast<const uint8_t*>(bytes);
    while (count > 0) {
        if (!wait_for(socket, POLLOUT, deadline))
            throw wire_error("the other side does not take its message");
        const ssize_t sent = send(socket.get(), next, count, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR && errno != EAGAIN)
            fail("send");
        if (sent > 0) {
            next += sent;
            count -= static_cast<size_t>(sent);
        }
    }
}

void send_message(const unique_fd& socket, qel_flist_t* list)
{
    const std::vector<uint8_t> frame = encode_frame(list);
    send_bytes(socket, frame.data(), frame.size());
}

list_ptr receive_message(const unique_fd& socket)
{
    const auto deadline = clock::now() + patience;
    std::array<uint8_t, frame_header_bytes> header{};
    const size_t got = receive_exactly(socket, header.data(), header.size(), deadline);
    if (got == 0)
        return nullptr;
    if (got < header.size())
        throw wire_error("message ends inside its header");
    std::vector<uint8_t> body(body_length(header));
    if (receive_exactly(socket, body.data(), body.size(), deadline) < body.size())
        throw wire_error("message ends inside its body");
    return decode_body(body);
}

} // namespace catalog
