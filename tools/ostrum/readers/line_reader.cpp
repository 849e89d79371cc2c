#include "readers/line_reader.h"

#include <cstring>

namespace ostrum_tool {
namespace {

constexpr size_t buffer_bytes = 512UL * 1024;

} // namespace

line_reader::line_reader(byte_source& from, uint64_t offset)
    : from_(from), buffer_(buffer_bytes), base_(offset)
{}

bool line_reader::next(text_line& line)
{
    size_t searched = begin_;
    for (;;) {
        const char* const found =
            static_cast<const char*>(std::memchr(buffer_.data() + searched, '\n', end_ - searched));
        const size_t stop = found != nullptr ? static_cast<size_t>(found - buffer_.data()) : end_;
        line = {text_line::kind::whole,
                base_ + begin_,
                base_ + stop + 1,
                {buffer_.data() + begin_, stop - begin_}};
        if (stop - begin_ > max_line_bytes) {
            return skip_long_line(line);
        }
        if (found != nullptr) {
            begin_ = stop + 1;
            return true;
        }
        const size_t pending = end_ - begin_;
        if (!refill()) {
            line.is = text_line::kind::unfinished;
            line.end = base_ + end_;
            line.text = {buffer_.data() + begin_, pending};
            begin_ = end_;
            return pending > 0;
        }
        searched = begin_ + pending;
    }
}

// Makes room first when less than half is free: what is pending is far shorter than the buffer.
bool line_reader::refill()
{
    if (end_ > buffer_.size() / 2) {
        std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        base_ += begin_;
        end_ -= begin_;
        begin_ = 0;
    }
    const size_t got = from_.read(std::span(buffer_).subspan(end_));
    end_ += got;
    return got > 0;
}

bool line_reader::skip_long_line(text_line& line)
{
    line.is = text_line::kind::too_long;
    line.text = {};
    for (;;) {
        const void* const found = std::memchr(buffer_.data() + begin_, '\n', end_ - begin_);
        if (found != nullptr) {
            begin_ = static_cast<size_t>(static_cast<const char*>(found) - buffer_.data()) + 1;
            break;
        }
        begin_ = end_;
        if (!refill()) {
            break;
        }
    }
    line.end = base_ + begin_;
    return true;
}

} // namespace ostrum_tool
