#include "util/append_buffer.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "util/decimal_text.h"
#include "util/errno_keeper.h"
#include "util/guarded_write.h"

namespace ostrum {

namespace {

constexpr size_t cut_at_bytes = size_t{1024} * 1024;
constexpr size_t first_heap_bytes = size_t{64} * 1024;
constexpr size_t longest_formatted_bytes = 2048;

// The memory of the last large text, for the next one: pages that are new to the process cost more than what
// is written into them. It begins with its size. Null while a text uses it; the others make do with new
// memory.
constexpr size_t most_kept_bytes = 2 * cut_at_bytes;
constinit std::atomic<char*> kept_block{nullptr};

// Cuts the file off before what was written last, unless somebody has appended to it since. Not the host's
// own standard streams.
void take_back(int fd, size_t written)
{
    const errno_keeper keeper;
    struct stat status {};
    const off_t end = written > 0 && fd > STDERR_FILENO ? os::seek_file(fd, 0, SEEK_CUR) : -1;
    if (end > 0 && os::status_of_file(fd, status) == 0 && S_ISREG(status.st_mode) && status.st_size == end) {
        os::cut_file(fd, end - static_cast<off_t>(written));
    }
}

} // namespace

append_buffer::~append_buffer()
{
    if (large_ && capacity_bytes_ <= most_kept_bytes) {
        memcpy(large_.get(), &capacity_bytes_, sizeof(capacity_bytes_));
        large_.reset(kept_block.exchange(large_.release(), std::memory_order_acq_rel));
    }
}

void append_buffer::add_character(char c)
{
    add({&c, 1});
}

void append_buffer::add_text(const char* text)
{
    if (text != nullptr) {
        add(std::string_view(text));
    }
}

void append_buffer::add_formatted(const char* format, ...)
{
    char text[longest_formatted_bytes] = "";
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    add_text(text);
}

void append_buffer::add_number(int64_t value)
{
    filled_to(put_number(room_for(longest_number), value));
}

void append_buffer::add_unsigned(uint64_t value)
{
    filled_to(put_unsigned(room_for(longest_number), value));
}

char* append_buffer::room_for(size_t count)
{
    if (!has_room(count) && !grow(count)) {
        write_out();
    }
    return bytes_ + used_bytes_;
}

void append_buffer::filled_to(const char* end)
{
    const auto count = static_cast<size_t>(end - (bytes_ + used_bytes_));
    used_bytes_ += count;
    bytes_added_ += static_cast<int64_t>(count);
}

void append_buffer::cut_here()
{
    if (used_bytes_ >= cut_at_bytes) {
        write_out();
    }
}

bool append_buffer::finish()
{
    write_out();
    return !failed_;
}

void append_buffer::add(std::string_view text)
{
    const char* bytes = text.data();
    size_t count = text.size();
    bytes_added_ += static_cast<int64_t>(count);
    while (count > 0) {
        if (!has_room(count) && !grow(count) && !has_room(1)) {
            write_out();
        }
        const size_t room = capacity_bytes_ - used_bytes_;
        const size_t part = count < room ? count : room;
        memcpy(bytes_ + used_bytes_, bytes, part);
        used_bytes_ += part;
        bytes += part;
        count -= part;
    }
}

// Instead of a first block of its own. False when there is none that is large enough.
bool append_buffer::take_kept(size_t count)
{
    heap_ptr<char> kept{kept_block.exchange(nullptr, std::memory_order_acq_rel)};
    size_t kept_bytes = 0;
    if (kept) {
        memcpy(&kept_bytes, kept.get(), sizeof(kept_bytes));
    }
    if (kept_bytes < used_bytes_ + count) {
        return false;
    }
    memcpy(kept.get(), small_, used_bytes_);
    large_ = std::move(kept);
    bytes_ = large_.get();
    capacity_bytes_ = kept_bytes;
    return true;
}

bool append_buffer::grow(size_t count)
{
    if (!large_ && take_kept(count)) {
        return true;
    }
    size_t wanted = capacity_bytes_ < first_heap_bytes ? first_heap_bytes : capacity_bytes_ * 2;
    while (wanted < used_bytes_ + count) {
        wanted *= 2;
    }
    auto* larger = static_cast<char*>(os::reallocate(large_.get(), wanted));
    if (larger == nullptr) {
        return false;
    }
    if (!large_) {
        memcpy(larger, small_, used_bytes_);
    }
    (void)large_.release(); // the block was reallocated
    large_.reset(larger);
    bytes_ = larger;
    capacity_bytes_ = wanted;
    return true;
}

// After a failure the rest of the flush is not written: a gap would put figures under wrong starts. What was
// written of a text is taken back: the next writer's first line must not stand behind half a line.
void append_buffer::write_out()
{
    size_t written = 0;
    if (!failed_ && used_bytes_ > 0 && !write_all_guarded(fd_, bytes_, used_bytes_, &written)) {
        failed_ = true;
        take_back(fd_, written);
    }
    used_bytes_ = 0;
}

} // namespace ostrum
