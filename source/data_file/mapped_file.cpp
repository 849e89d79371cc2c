#include "data_file/mapped_file.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "config/lookup.h"
#include "data_file/data_file.h"
#include "util/diagnostics.h"
#include "util/guarded_write.h"
#include "util/look_until.h"
#include "util/time_value.h"

namespace ostrum {

namespace {

constexpr auto file_bytes = static_cast<int64_t>(sizeof(data_file_image));

// For 100 ms in all, whether another process has got on.
template <typename Done>
bool within_patience(Done done)
{
    return look_until(21, 5 * tv_per_ms, done);
}

// The byte behind the end of the file.
bool lock_turn(int fd, short type)
{
    return os::lock_range(fd, F_SETLK, type, file_bytes, 1) == 0;
}

int64_t size_of_file(const unique_fd& fd)
{
    struct stat status {};
    return os::status_of_file(fd.get(), status) == 0 ? static_cast<int64_t>(status.st_size) : -1;
}

using reserve_call = int(int fd, off_t offset, off_t length);

// Backs the whole file with disk blocks: a write into the mapping that finds no space would end the host
// with SIGBUS. File systems that cannot reserve are let pass. False, with errno set, when space is short.
bool reserve_space(const unique_fd& fd, reserve_call* reserve)
{
    int error = EINTR;
    while (error == EINTR) {
        error = reserve(fd.get(), 0, file_bytes);
    }
    errno = error;
    return error != ENOSPC && error != EDQUOT;
}

// A copy of a file may have lost its blocks. Others may be writing into it, so it is left as it is where
// the file system itself cannot reserve.
bool reserve_space_if_sparse(const unique_fd& fd)
{
    constexpr int64_t status_block_bytes = 512;
    struct stat status {};
    if (os::status_of_file(fd.get(), status) != 0) {
        return true;
    }
    return status.st_blocks * status_block_bytes >= file_bytes ||
           reserve_space(fd, os::reserve_blocks_in_use);
}

bool extend(const unique_fd& fd)
{
    const char last_byte = '\0';
    return os::seek_file(fd.get(), file_bytes - 1, SEEK_SET) == file_bytes - 1 &&
           write_all_guarded(fd.get(), &last_byte, sizeof last_byte);
}

// The prefix of this and of the messages below is kept: no function has that name.
bool map_into(mapped_file& file, const char* path)
{
    file.image.reset(static_cast<data_file_image*>(os::map_shared(sizeof(data_file_image), file.fd.get())));
    if (!file.image) {
        err_print("__data_file_open : failed mmap on [%s] (%d)[%s]\n", path, errno, strerror(errno));
        return false;
    }
    if (debug_on(debug_general)) {
        debug_print("__data_file_open : mmap'd[%s] at address[%#x]\n", path,
                    low_address_bits(file.image.get()));
    }
    return true;
}

void report_failed_extension(const char* path)
{
    err_print("__data_file_open : failed extending [%s] (%d)[%s]\n", path, errno, strerror(errno));
}

mapped_file create_file(const char* path)
{
    mapped_file file;
    file.fd.reset(os::open_file(path, O_RDWR | O_CREAT, 0600));
    if (!file.fd) {
        err_print("__data_file_open : failed creating [%s] (%d)[%s]\n", path, errno, strerror(errno));
        return {};
    }
    file.turn = opening_turn(file.fd);
    // Not fresh when another process has created it since we looked: its contents are kept then.
    file.fresh = size_of_file(file.fd) != file_bytes;
    if (file.fresh && !extend(file.fd)) {
        report_failed_extension(path);
        return {}; // kept: the file stays on disk
    }
    if (!reserve_space(file.fd, os::reserve_blocks)) {
        report_failed_extension(path);
        if (file.fresh) {
            os::unlink_path(path); // it has the right size: the next start would take it for a good one
        }
        return {};
    }
    if (!map_into(file, path)) {
        if (file.fresh) {
            os::unlink_path(path);
        }
        return {};
    }
    return file;
}

// An empty file is looked at again for a while: another process may be creating it.
int64_t settled_size(const char* path)
{
    int64_t size = 0;
    within_patience([&size, path] {
        size = perf_file_size(path);
        return size != 0;
    });
    return size;
}

bool has_right_size(const char* path, int64_t size)
{
    if (size == file_bytes) {
        return true;
    }
    err_print("__data_file_open : file[%s] size[%d] - correct[%d]\n", path,
              static_cast<int>(std::min<int64_t>(size, INT_MAX)), static_cast<int>(file_bytes));
    return false;
}

mapped_file open_existing(const char* path)
{
    if (!has_right_size(path, settled_size(path))) {
        return {};
    }
    mapped_file file;
    file.fd.reset(os::open_file(path, O_RDWR, 0));
    if (!file.fd) {
        err_print("__data_file_open : failed opening [%s] (%d)[%s]\n", path, errno, strerror(errno));
        return {};
    }
    file.turn = opening_turn(file.fd);
    if (!reserve_space_if_sparse(file.fd)) {
        report_failed_extension(path);
        return {};
    }
    if (!map_into(file, path)) {
        return {};
    }
    return file;
}

} // namespace

opening_turn::opening_turn(const unique_fd& fd)
{
    const bool held = within_patience([&fd] { return lock_turn(fd.get(), F_WRLCK); });
    fd_ = held ? fd.get() : -1;
}

opening_turn::~opening_turn()
{
    if (fd_ >= 0) {
        (void)lock_turn(fd_, F_UNLCK);
    }
}

mapped_file open_mapped_file(const char* path, bool must_exist)
{
    if (path[0] == '\0') {
        err_print("__data_file_open : no file name specified\n");
        return {};
    }
    const int32_t existence = file_exists(path);
    if (existence < 0) {
        err_print("__data_file_open : data file[%s] is a directory\n", path);
        return {};
    }
    if (existence > 0) {
        return open_existing(path);
    }
    if (must_exist) {
        err_print("__data_file_open : data file[%s] doesn't exist\n", path);
        return {};
    }
    return create_file(path);
}

} // namespace ostrum
