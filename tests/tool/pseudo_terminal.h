#ifndef OSTRUM_TESTS_TOOL_PSEUDO_TERMINAL_H
#define OSTRUM_TESTS_TOOL_PSEUDO_TERMINAL_H
// The tool in a child process, on a terminal of its own.
#include <chrono>
#include <clocale>
#include <csignal>
#include <iostream>
#include <regex>
#include <utility>

#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include "cli/command.h"
#include "output/terminal.h"
#include "tool/child_program.h"

namespace tool_test {

class pseudo_terminal {
public:
    // A terminal that does not control the child sends it no signal when it goes.
    pseudo_terminal(const std::vector<std::string>& words, const char* term, const char* locale = "C.UTF-8",
                    bool controls = true)
    {
        winsize size{24, 100, 0, 0};
        int slave = -1;
        ::openpty(&master_, &slave, nullptr, nullptr, &size); // the test keeps one end of each
        tcgetattr(slave, &before_);
        child_ = ::fork();
        if (child_ == 0) {
            ::close(master_);
            if (controls) {
                ::login_tty(slave);
            } else {
                for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
                    ::dup2(slave, fd);
                }
                ::close(slave);
            }
            ::setenv("TERM", term, 1);
            std::setlocale(LC_CTYPE, locale);
            const int status = ostrum_tool::run_tool(
                words, {std::cout, std::cerr, ostrum_tool::style_of_descriptor(STDOUT_FILENO), true});
            std::cout.flush();
            ::_exit(status);
        }
        slave_ = slave;
    }
    void hang_up()
    {
        ::close(std::exchange(slave_, -1));
        ::close(std::exchange(master_, -1));
    }
    ~pseudo_terminal()
    {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
        ::close(slave_);
        ::close(master_);
    }
    pseudo_terminal(const pseudo_terminal&) = delete;
    pseudo_terminal& operator=(const pseudo_terminal&) = delete;

    void type(const std::string& keys) const
    {
        EXPECT_EQ(::write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    void send(int signal) const { ::kill(child_, signal); }
    void resize(unsigned short rows, unsigned short columns) const
    {
        winsize size{rows, columns, 0, 0};
        ::ioctl(master_, TIOCSWINSZ, &size);
        send(SIGWINCH);
    }

    // Whether the text comes within ten seconds; what came up to it is taken. Sequences that steer the
    // terminal are left out.
    bool shows(const std::string& text)
    {
        return comes_true(
            [&] {
                read_some();
                const std::string seen = plain();
                const size_t at = seen.find(text);
                received_ = at != std::string::npos ? seen.substr(at + text.size()) : received_;
                return at != std::string::npos;
            },
            std::chrono::seconds(10));
    }

    [[nodiscard]] bool ends_within(std::chrono::seconds limit) const
    {
        siginfo_t ended{};
        return comes_true(
            [&] {
                ::waitid(P_PID, static_cast<id_t>(child_), &ended, WEXITED | WNOHANG | WNOWAIT);
                return ended.si_pid == child_;
            },
            limit);
    }
    // Exit status; everything that the child wrote is in raw().
    int wait()
    {
        int status = 0;
        while (::waitpid(child_, &status, WNOHANG) == 0) {
            read_some();
        }
        read_some();
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    [[nodiscard]] const std::string& raw() const { return raw_; }
    [[nodiscard]] bool is_as_before() const
    {
        termios now{};
        tcgetattr(slave_, &now);
        return now.c_lflag == before_.c_lflag && now.c_iflag == before_.c_iflag &&
               now.c_oflag == before_.c_oflag;
    }

private:
    [[nodiscard]] std::string plain() const
    {
        static const std::regex steering("\x1b(\\[[0-9;?]*[ -/]*[@-~]|[()][A-Z0-9]|[=>78])|\x0f");
        return std::regex_replace(received_, steering, "");
    }
    void read_some()
    {
        pollfd ready{master_, POLLIN, 0};
        if (::poll(&ready, 1, 50) > 0) {
            char bytes[4096];
            const ssize_t count = ::read(master_, bytes, sizeof bytes);
            received_.append(bytes, count > 0 ? static_cast<size_t>(count) : 0);
            raw_.append(bytes, count > 0 ? static_cast<size_t>(count) : 0);
        }
    }

    int master_ = -1, slave_ = -1;
    pid_t child_ = -1;
    termios before_{};
    std::string received_, raw_;
};

} // namespace tool_test
#endif
