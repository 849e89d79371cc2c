#ifndef OSTRUM_DATA_FILE_MAPPED_FILE_H
#define OSTRUM_DATA_FILE_MAPPED_FILE_H
#include <cstdint>
#include <memory>

#include "data_file/layout.h"
#include "util/resources.h"

namespace ostrum {

// One process at a time creates the file or initialises what is in it, so that nobody counts into a file
// that is about to be emptied. Held as a record lock behind the end of the file, which a process that dies
// gives back. Waited for only briefly and then done without: a stopped process must not stop others.
class opening_turn {
public:
    opening_turn() = default;
    explicit opening_turn(const unique_fd& fd);
    opening_turn(opening_turn&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    opening_turn& operator=(opening_turn&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    opening_turn(const opening_turn&) = delete;
    opening_turn& operator=(const opening_turn&) = delete;
    ~opening_turn();

    [[nodiscard]] bool held() const { return fd_ >= 0; }

private:
    int fd_ = -1; // borrowed; -1 = not held
};

struct unmap_image {
    void operator()(data_file_image* image) const { os::unmap(image, sizeof *image); }
};

struct mapped_file {
    unique_fd fd;
    opening_turn turn;                                   // before the descriptor in destruction
    std::unique_ptr<data_file_image, unmap_image> image; // null: not usable, and reported
    bool fresh = false;                                  // nothing in it is initialised
};

// Opens and maps the file, creating it when it is missing and need not exist.
mapped_file open_mapped_file(const char* path, bool must_exist);

} // namespace ostrum
#endif
