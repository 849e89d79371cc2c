#include "serve/listening_socket.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tool_errors.h"

namespace ostrum_tool {
namespace {

using address_list = std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)>;

bool is_port(const std::string& text)
{
    uint16_t port = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc{} && stop == text.data() + text.size();
}

address_list parse_address(const std::string& text)
{
    const size_t colon = text.find_last_of(':');
    std::string host = text.substr(0, colon);
    const bool bracketed = host.starts_with("[") && host.ends_with("]");
    if (bracketed) {
        host = host.substr(1, host.size() - 2);
    }
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_family = bracketed ? AF_INET6 : AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    // Without a host it would take any, of a port beyond the last one only the lower bits.
    const bool complete = colon != std::string::npos && !host.empty() && is_port(text.substr(colon + 1));
    if (!complete || ::getaddrinfo(host.c_str(), text.c_str() + colon + 1, &hints, &found) != 0) {
        throw usage_error("--listen " + text + ": no address and port, such as 127.0.0.1:9977 or [::1]:9977");
    }
    return {found, &::freeaddrinfo};
}

bool names_loopback(const sockaddr& address)
{
    if (address.sa_family == AF_INET) {
        const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
        return ntohl(v4.sin_addr.s_addr) >> 24U == 127;
    }
    return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr);
}

std::string name_of(int fd)
{
    sockaddr_storage address{};
    socklen_t bytes = sizeof(address);
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    ::getsockname(fd, generic, &bytes);
    ::getnameinfo(generic, bytes, host.data(), host.size(), port.data(), port.size(),
                  NI_NUMERICHOST | NI_NUMERICSERV);
    const std::string shown = host.data();
    return (address.ss_family == AF_INET6 ? "[" + shown + "]" : shown) + ":" + port.data();
}

} // namespace

listening_socket::listening_socket(const std::string& address)
{
    const address_list wanted = parse_address(address);
    is_loopback_ = names_loopback(*wanted->ai_addr);
    fd_ = ::socket(wanted->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    if (fd_ < 0 || ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
        ::bind(fd_, wanted->ai_addr, wanted->ai_addrlen) != 0 || ::listen(fd_, SOMAXCONN) != 0) {
        const std::string reason = std::strerror(errno);
        if (fd_ >= 0) {
            ::close(fd_);
        }
        throw input_error("cannot listen on " + address + ": " + reason);
    }
    name_ = name_of(fd_);
}

listening_socket::~listening_socket()
{
    ::close(fd_);
}

} // namespace ostrum_tool
