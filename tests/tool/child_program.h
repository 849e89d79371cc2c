#ifndef OSTRUM_TESTS_TOOL_CHILD_PROGRAM_H
#define OSTRUM_TESTS_TOOL_CHILD_PROGRAM_H
// Programs that serve something while a test runs, and HTTP to talk to them.
#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tool_test {

inline bool comes_true(const std::function<bool()>& condition,
                       std::chrono::milliseconds patience = std::chrono::seconds(30))
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

class child_program {
public:
    // Both its output streams go to `log_file`.
    child_program(std::vector<std::string> words, const std::string& log_file)
    {
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        process_ = fork();
        if (process_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int log = ::open(log_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(log, STDOUT_FILENO);
            dup2(log, STDERR_FILENO);
            execvp(arguments[0], arguments.data());
            _exit(127);
        }
    }
    ~child_program()
    {
        if (process_ > 0) {
            send(SIGKILL);
            waitpid(process_, nullptr, 0);
        }
    }
    child_program(const child_program&) = delete;
    child_program& operator=(const child_program&) = delete;

    void send(int signal) const { kill(process_, signal); }
    // How it ended; -1 when a signal ended it, or nothing within the time.
    int exit_status()
    {
        int status = 0;
        if (!comes_true([&] { return waitpid(process_, &status, WNOHANG) == process_; })) {
            return -1;
        }
        process_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t process_ = -1;
};

// A connection to 127.0.0.1.
class local_connection {
public:
    explicit local_connection(int port) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        is_open_ = connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    ~local_connection() { close(fd_); }
    local_connection(const local_connection&) = delete;
    local_connection& operator=(const local_connection&) = delete;

    [[nodiscard]] bool is_open() const { return is_open_; }
    void send(const std::string& text) const
    {
        static_cast<void>(::send(fd_, text.data(), text.size(), MSG_NOSIGNAL));
    }
    [[nodiscard]] std::string rest() const
    {
        std::string text;
        char part[65'536];
        for (ssize_t got = 0; (got = recv(fd_, part, sizeof part, 0)) > 0;) {
            text.append(part, static_cast<size_t>(got));
        }
        return text;
    }

private:
    int fd_;
    bool is_open_ = false;
};

struct http_answer {
    std::string head, body;
};

// Status line, headers and body; "" when nobody listens.
inline http_answer http(int port, const std::string& request, const std::string& headers = "")
{
    const local_connection connection(port);
    if (!connection.is_open()) {
        return {};
    }
    connection.send(request + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n" + headers + "\r\n");
    const std::string text = connection.rest();
    const size_t end = text.find("\r\n\r\n");
    return end == std::string::npos ? http_answer{text, ""}
                                    : http_answer{text.substr(0, end), text.substr(end + 4)};
}

} // namespace tool_test
#endif
