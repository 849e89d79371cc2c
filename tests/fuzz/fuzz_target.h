#ifndef OSTRUM_TESTS_FUZZ_FUZZ_TARGET_H
#define OSTRUM_TESTS_FUZZ_FUZZ_TARGET_H
// What the fuzz targets share. A target is LLVMFuzzerTestOneInput() in NAME_fuzz.cpp: it gives the input to
// a reader and checks what comes out with must().
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include "support/fake_os.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

// Standard error as it was at the begin: hostile input makes so many messages that both mains lead it
// nowhere afterwards.
inline const int report_fd = dup(STDERR_FILENO);

// Ends the run with a report, which is what the fuzzer takes for a finding, unless it holds.
inline void must(bool holds, const char* what, std::string_view shown = {})
{
    if (!holds) {
        dprintf(report_fd, "==> does not hold: %s%s%.*s\n", what, shown.empty() ? "" : ": ",
                static_cast<int>(shown.size()), shown.data());
        abort();
    }
}

inline std::string_view text_of(const uint8_t* data, size_t size)
{
    return {reinterpret_cast<const char*>(data), size};
}

// The pieces of a text; without what follows the last separator when that is nothing.
inline std::vector<std::string> cut(std::string_view text, char separator)
{
    std::vector<std::string> pieces;
    while (!text.empty()) {
        const std::string_view piece = text.substr(0, text.find(separator));
        pieces.emplace_back(piece);
        text.remove_prefix(std::min(piece.size() + 1, text.size()));
    }
    return pieces;
}

inline const int input_fd = memfd_create("input", MFD_CLOEXEC);

// Path of a file in memory with these bytes; the next call replaces them.
inline std::string file_of(std::string_view bytes)
{
    must(ftruncate(input_fd, 0) == 0 &&
             pwrite(input_fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
         "the input can be written to a file");
    return "/proc/self/fd/" + std::to_string(input_fd);
}

// While one lives, as many blocks and descriptors are taken as are given back.
class nothing_left_behind {
public:
    nothing_left_behind() = default;
    ~nothing_left_behind()
    {
        must(fake_os::blocks_in_use() == blocks_, "every block is released");
        must(lowest_free_fd() == fd_, "every descriptor is closed");
    }
    nothing_left_behind(const nothing_left_behind&) = delete;
    nothing_left_behind& operator=(const nothing_left_behind&) = delete;

private:
    static int lowest_free_fd()
    {
        const int fd = dup(report_fd);
        close(fd);
        return fd;
    }

    int64_t blocks_ = fake_os::blocks_in_use();
    int fd_ = lowest_free_fd();
};

} // namespace fuzz
#endif
