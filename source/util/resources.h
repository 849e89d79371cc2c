#ifndef OSTRUM_UTIL_RESOURCES_H
#define OSTRUM_UTIL_RESOURCES_H
// The owners of this library: every heap block and every descriptor is held by one of these from the
// moment it exists until it is released or handed on.
#include "os/os_calls.h"

#include <memory>
#include <utility>

namespace ostrum {

struct release_block {
    void operator()(void* block) const { os::release(block); }
};

// A block of the C heap holding plain records of type T.
template <typename T>
using heap_ptr = std::unique_ptr<T, release_block>;

// Null when memory is short.
template <typename T>
heap_ptr<T> heap_zeroed(size_t count = 1)
{
    // NOLINTNEXTLINE(bugprone-sizeof-expression): T may well be a pointer, in a block of pointers
    return heap_ptr<T>{static_cast<T*>(os::allocate_zeroed(sizeof(T) * count))};
}

inline heap_ptr<char> heap_text(const char* text)
{
    return heap_ptr<char>{os::duplicate(text)};
}

class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(unique_fd&& other) noexcept : fd_(other.release()) {}
    unique_fd& operator=(unique_fd&& other) noexcept
    {
        reset(other.release());
        return *this;
    }
    unique_fd(const unique_fd&) = delete;
    unique_fd& operator=(const unique_fd&) = delete;
    ~unique_fd() { reset(); }

    [[nodiscard]] int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1)
    {
        const int old = std::exchange(fd_, fd);
        if (old >= 0) {
            os::close_file(old);
        }
    }

private:
    int fd_ = -1;
};

} // namespace ostrum
#endif
