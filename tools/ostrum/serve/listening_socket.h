#ifndef OSTRUM_TOOL_SERVE_LISTENING_SOCKET_H
#define OSTRUM_TOOL_SERVE_LISTENING_SOCKET_H
#include <string>

namespace ostrum_tool {

class listening_socket {
public:
    // "127.0.0.1:9977" or "[::1]:9977", numbers only; port 0 takes any that is free. Throws usage_error, and
    // input_error when the system refuses.
    explicit listening_socket(const std::string& address);
    ~listening_socket();
    listening_socket(const listening_socket&) = delete;
    listening_socket& operator=(const listening_socket&) = delete;

    [[nodiscard]] int fd() const { return fd_; }
    [[nodiscard]] const std::string& name() const { return name_; } // as the constructor takes it
    [[nodiscard]] bool is_loopback() const { return is_loopback_; }

private:
    int fd_ = -1;
    std::string name_;
    bool is_loopback_ = false;
};

} // namespace ostrum_tool
#endif
