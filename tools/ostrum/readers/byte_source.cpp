#include "readers/byte_source.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>
#include <zstd.h>

#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr size_t packed_chunk_bytes = 128UL * 1024;

[[noreturn]] void fail(const std::string& path, const char* reason)
{
    throw input_error(path + ": " + reason);
}

class file_source final : public byte_source {
public:
    file_source(int fd, const std::string& path) : path_(path), fd_(fd)
    {
        if (fd_ < 0 || ::fstat(fd_, &status_) != 0) {
            fail(path_, std::strerror(errno));
        }
    }
    ~file_source() override
    {
        if (fd_ > STDIN_FILENO) {
            ::close(fd_);
        }
    }
    file_source(const file_source&) = delete;
    file_source& operator=(const file_source&) = delete;

    size_t read(std::span<char> into) override
    {
        for (;;) {
            const ssize_t got = ::read(fd_, into.data(), into.size());
            if (got >= 0) {
                return static_cast<size_t>(got);
            }
            if (errno != EINTR) {
                fail(path_, std::strerror(errno));
            }
        }
    }

    void start_at(uint64_t offset)
    {
        if (offset > 0 && ::lseek(fd_, static_cast<off_t>(offset), SEEK_SET) < 0) {
            fail(path_, std::strerror(errno));
        }
    }

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] const struct stat& status() const { return status_; }

private:
    std::string path_;
    int fd_;
    struct stat status_ {};
};

std::unique_ptr<file_source> open_file(const std::string& path)
{
    // Not blocking while it is opened: a FIFO in place of a file must not stop the tool.
    return std::make_unique<file_source>(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK), path);
}

// "-" is standard input.
std::unique_ptr<file_source> open_stored(const std::string& path)
{
    if (path == "-") {
        return std::make_unique<file_source>(STDIN_FILENO, "standard input");
    }
    auto file = open_file(path);
    if (S_ISDIR(file->status().st_mode)) {
        fail(path, "is a directory");
    }
    if (!S_ISREG(file->status().st_mode)) {
        fail(path, "is no regular file; pipe it in and name it \"-\"");
    }
    return file;
}

// Hands out again what was read to find out the kind of the file.
class peeked_source final : public byte_source {
public:
    explicit peeked_source(std::unique_ptr<file_source> from)
        : from_(std::move(from)), filled_(read_fully(*from_, head_))
    {}

    [[nodiscard]] bool starts_with(std::string_view magic) const
    {
        return std::string_view(head_, filled_).starts_with(magic);
    }
    [[nodiscard]] const std::string& path() const { return from_->path(); }

    size_t read(std::span<char> into) override
    {
        if (given_ == filled_) {
            return from_->read(into);
        }
        const size_t part = std::min(into.size(), filled_ - given_);
        std::memcpy(into.data(), head_ + given_, part);
        given_ += part;
        return part;
    }

private:
    std::unique_ptr<file_source> from_;
    char head_[4]{};
    size_t filled_, given_ = 0;
};

class gzip_source final : public byte_source {
public:
    explicit gzip_source(std::unique_ptr<peeked_source> from)
        : from_(std::move(from)), packed_(packed_chunk_bytes)
    {
        if (inflateInit2(&stream_, 15 + 16) != Z_OK) {
            fail(from_->path(), "memory is short");
        }
    }
    ~gzip_source() override { inflateEnd(&stream_); }
    gzip_source(const gzip_source&) = delete;
    gzip_source& operator=(const gzip_source&) = delete;

    size_t read(std::span<char> into) override
    {
        stream_.next_out = reinterpret_cast<Bytef*>(into.data());
        stream_.avail_out = static_cast<uInt>(into.size());
        while (stream_.avail_out == into.size()) {
            if (stream_.avail_in == 0 && !refill()) {
                if (inside_member_) {
                    throw damaged_input("the compressed data is cut short");
                }
                return 0;
            }
            step();
        }
        return into.size() - stream_.avail_out;
    }

private:
    bool refill()
    {
        const size_t got = from_->read(packed_);
        stream_.next_in = reinterpret_cast<Bytef*>(packed_.data());
        stream_.avail_in = static_cast<uInt>(got);
        return got > 0;
    }
    void step()
    {
        inside_member_ = true;
        const int result = inflate(&stream_, Z_NO_FLUSH);
        if (result == Z_STREAM_END) {
            inside_member_ = false; // another member may follow
            inflateReset(&stream_);
        } else if (result != Z_OK && result != Z_BUF_ERROR) {
            throw damaged_input("the compressed data is damaged");
        }
    }

    std::unique_ptr<peeked_source> from_;
    std::vector<char> packed_;
    z_stream stream_{};
    bool inside_member_ = false;
};

class zstd_source final : public byte_source {
public:
    explicit zstd_source(std::unique_ptr<peeked_source> from)
        : from_(std::move(from)), packed_(packed_chunk_bytes), stream_(ZSTD_createDStream(), ZSTD_freeDStream)
    {
        if (!stream_) {
            fail(from_->path(), "memory is short");
        }
    }

    size_t read(std::span<char> into) override
    {
        ZSTD_outBuffer out{into.data(), into.size(), 0};
        while (out.pos == 0) {
            if (in_.pos == in_.size) {
                in_ = {packed_.data(), from_->read(packed_), 0};
                if (in_.size == 0) {
                    if (inside_frame_) {
                        throw damaged_input("the compressed data is cut short");
                    }
                    return 0;
                }
            }
            const size_t result = ZSTD_decompressStream(stream_.get(), &out, &in_);
            if (ZSTD_isError(result) != 0) {
                throw damaged_input("the compressed data is damaged");
            }
            inside_frame_ = result != 0;
        }
        return out.pos;
    }

private:
    std::unique_ptr<peeked_source> from_;
    std::vector<char> packed_;
    std::unique_ptr<ZSTD_DStream, size_t (*)(ZSTD_DStream*)> stream_;
    ZSTD_inBuffer in_{};
    bool inside_frame_ = false;
};

constexpr std::string_view gzip_magic{"\x1F\x8B", 2};
constexpr std::string_view zstd_magic{"\x28\xB5\x2F\xFD", 4};

} // namespace

size_t read_fully(byte_source& from, std::span<char> into)
{
    size_t filled = 0;
    while (filled < into.size()) {
        const size_t got = from.read(into.subspan(filled));
        if (got == 0) {
            break;
        }
        filled += got;
    }
    return filled;
}

source_facts look_at_source(const std::string& path)
{
    if (path == "-") {
        return {};
    }
    auto file = open_stored(path);
    source_facts facts;
    facts.size_bytes = static_cast<uint64_t>(file->status().st_size);
    const peeked_source peeked(std::move(file));
    facts.compressed = peeked.starts_with(gzip_magic) || peeked.starts_with(zstd_magic);
    facts.regular = !facts.compressed;
    return facts;
}

std::unique_ptr<byte_source> open_source(const std::string& path, uint64_t from_offset)
{
    auto file = open_stored(path);
    if (from_offset > 0) {
        file->start_at(from_offset);
        return file;
    }
    auto peeked = std::make_unique<peeked_source>(std::move(file));
    if (peeked->starts_with(gzip_magic)) {
        return std::make_unique<gzip_source>(std::move(peeked));
    }
    if (peeked->starts_with(zstd_magic)) {
        return std::make_unique<zstd_source>(std::move(peeked));
    }
    return peeked;
}

plain_file open_plain(const std::string& path)
{
    auto file = open_file(path);
    if (!S_ISREG(file->status().st_mode)) {
        fail(path, "not a regular file");
    }
    const auto size_bytes = static_cast<uint64_t>(file->status().st_size);
    return {std::move(file), size_bytes};
}

} // namespace ostrum_tool
