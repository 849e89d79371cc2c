#ifndef OSTRUM_TOOL_OUTPUT_TERMINAL_H
#define OSTRUM_TOOL_OUTPUT_TERMINAL_H
// Standard output as it is: a terminal of some width, perhaps behind a pager, a file or a pipe.
#include <array>
#include <ostream>
#include <streambuf>

#include <sys/types.h>

#include "output/table.h"

namespace ostrum_tool {

class descriptor_buffer final : public std::streambuf {
public:
    explicit descriptor_buffer(int fd) : fd_(fd) { setp(bytes_.data(), bytes_.data() + bytes_.size()); }

    [[nodiscard]] int error() const { return error_; } // errno of the first write that failed
    void send_to(int fd) { fd_ = fd; }

private:
    int overflow(int c) override;
    int sync() override;

    int fd_;
    int error_ = 0;
    std::array<char, 65'536> bytes_;
};

// Whether writing failed because nobody reads any more.
bool reader_has_gone(const std::ostream& out);

text_style style_of_descriptor(int fd);

// While it lives, what is written to the buffer goes to $PAGER, if standard output is a terminal and the
// variable names one.
class pager {
public:
    explicit pager(descriptor_buffer& buffer);
    ~pager(); // waits until the person has left it
    pager(const pager&) = delete;
    pager& operator=(const pager&) = delete;

private:
    descriptor_buffer& buffer_;
    int pipe_ = -1;
    pid_t process_ = -1;
};

} // namespace ostrum_tool
#endif
