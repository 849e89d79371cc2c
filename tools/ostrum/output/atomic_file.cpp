#include "output/atomic_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr mode_t everybody_reads = 0644; // within the umask: collectors run as other users

struct path_parts {
    std::string directory, name;
};

path_parts parts_of(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path_parts{".", path}
                                      : path_parts{path.substr(0, slash + 1), path.substr(slash + 1)};
}

constexpr std::string_view draft_ending = ".tmp";

std::string draft_beginning(const path_parts& wanted)
{
    return "." + wanted.name + ".";
}

// ".NAME.4711.tmp"
bool is_draft_name(std::string_view name, std::string_view beginning)
{
    if (!name.starts_with(beginning) || !name.ends_with(draft_ending) ||
        name.size() <= beginning.size() + draft_ending.size()) {
        return false;
    }
    name.remove_prefix(beginning.size());
    name.remove_suffix(draft_ending.size());
    return name.find_first_not_of("0123456789") == std::string_view::npos;
}

// A draft is locked as long as somebody writes it, in whichever container that is.
bool is_abandoned(const std::string& draft_path)
{
    const int fd = ::open(draft_path.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    const bool abandoned = fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0;
    if (fd >= 0) {
        ::close(fd);
    }
    return abandoned;
}

// What killed processes have left. What cannot be looked at or removed is no reason not to write.
void remove_abandoned_drafts(const path_parts& wanted)
{
    std::error_code error;
    std::filesystem::directory_iterator entry(wanted.directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string path = entry->path().string();
        if (is_draft_name(entry->path().filename().string(), draft_beginning(wanted)) && is_abandoned(path)) {
            ::unlink(path.c_str());
        }
    }
}

// A file that goes again unless it is renamed.
class draft {
public:
    draft(std::string path, const std::string& wanted_path)
        : path_(std::move(path)), wanted_path_(wanted_path)
    {
        struct stat status {};
        do {
            close_file();
            ::unlink(path_.c_str()); // of a process of this number, where files cannot be locked
            fd_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, everybody_reads);
            check(fd_ >= 0);
            // Another process may take it for abandoned before it is locked.
        } while (::flock(fd_, LOCK_EX) == 0 && ::fstat(fd_, &status) == 0 && status.st_nlink == 0);
    }
    ~draft()
    {
        close_file();
        if (!renamed_) {
            ::unlink(path_.c_str());
        }
    }
    draft(const draft&) = delete;
    draft& operator=(const draft&) = delete;

    void write(std::string_view text)
    {
        while (!text.empty()) {
            const ssize_t written = ::write(fd_, text.data(), text.size());
            check(written >= 0 || errno == EINTR);
            text.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
        }
    }

    void put_in_place()
    {
        check(::fsync(fd_) == 0);
        check(close_file());
        check(std::rename(path_.c_str(), wanted_path_.c_str()) == 0);
        renamed_ = true;
    }

private:
    void check(bool done)
    {
        if (!done) {
            throw input_error(wanted_path_ + ": " + std::strerror(errno));
        }
    }
    bool close_file()
    {
        const int fd = std::exchange(fd_, -1);
        return fd < 0 || ::close(fd) == 0;
    }

    std::string path_;
    const std::string& wanted_path_;
    int fd_ = -1;
    bool renamed_ = false;
};

// The rename itself is to outlive a crash. Where directories cannot be synced, it is as safe as it gets.
void sync_directory(const std::string& directory)
{
    const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

} // namespace

void write_file_atomically(const std::string& path, std::string_view text)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw input_error(path + ": not a regular file"); // a device would be gone
    }
    const path_parts parts = parts_of(path);
    remove_abandoned_drafts(parts);
    draft file(parts.directory + "/" + draft_beginning(parts) + std::to_string(::getpid()) +
                   std::string(draft_ending),
               path);
    file.write(text);
    file.put_in_place();
    sync_directory(parts.directory);
}

} // namespace ostrum_tool
