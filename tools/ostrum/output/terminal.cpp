#include "output/terminal.h"

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ostrum_tool {
namespace {

std::string_view environment(const char* name)
{
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

[[noreturn]] void become_pager(const char* command, int from)
{
    ::dup2(from, STDIN_FILENO);
    ::setenv("LESS", "FRSX", 0); // leaves at once when all fits on the screen; lets colours through
    ::execl("/bin/sh", "sh", "-c", command, static_cast<char*>(nullptr));
    ::_exit(127);
}

} // namespace

int descriptor_buffer::overflow(int c)
{
    if (sync() != 0) {
        return traits_type::eof();
    }
    if (c != traits_type::eof()) {
        *pptr() = static_cast<char>(c);
        pbump(1);
    }
    return 0;
}

int descriptor_buffer::sync()
{
    for (const char* from = pbase(); error_ == 0 && from < pptr();) {
        const ssize_t written = ::write(fd_, from, static_cast<size_t>(pptr() - from));
        if (written >= 0) {
            from += written;
        } else if (errno != EINTR) {
            error_ = errno;
        }
    }
    setp(bytes_.data(), bytes_.data() + bytes_.size());
    return error_ == 0 ? 0 : -1;
}

bool reader_has_gone(const std::ostream& out)
{
    const auto* const buffer = dynamic_cast<const descriptor_buffer*>(out.rdbuf());
    return buffer != nullptr && buffer->error() == EPIPE;
}

text_style style_of_descriptor(int fd)
{
    text_style style;
    style.ascii = std::strcmp(::nl_langinfo(CODESET), "UTF-8") != 0;
    style.terminal = ::isatty(fd) == 1;
    if (!style.terminal) {
        return style;
    }
    const bool dumb = environment("TERM") == "dumb" || environment("TERM").empty();
    style.colour = !dumb && environment("NO_COLOR").empty();
    winsize window{};
    size_t columns = 0;
    const std::string_view chosen = environment("COLUMNS");
    std::from_chars(chosen.data(), chosen.data() + chosen.size(), columns);
    style.width = columns > 0 ? columns : ::ioctl(fd, TIOCGWINSZ, &window) == 0 ? window.ws_col : 80;
    return style;
}

pager::pager(descriptor_buffer& buffer) : buffer_(buffer)
{
    const std::string command(environment("PAGER"));
    int ends[2];
    if (::isatty(STDOUT_FILENO) != 1 || command.empty() || command == "cat" ||
        ::pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    process_ = ::fork();
    if (process_ == 0) {
        become_pager(command.c_str(), ends[0]);
    }
    ::close(ends[0]);
    if (process_ < 0) {
        ::close(ends[1]);
        return;
    }
    pipe_ = ends[1];
    buffer_.send_to(pipe_);
}

pager::~pager()
{
    if (process_ <= 0) {
        return;
    }
    buffer_.pubsync();
    buffer_.send_to(STDOUT_FILENO);
    ::close(pipe_);
    while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace ostrum_tool
