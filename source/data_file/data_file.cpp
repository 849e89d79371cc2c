#include "data_file/data_file.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "config/settings.h"
#include "data_file/contents.h"
#include "data_file/locks.h"
#include "data_file/mapped_file.h"
#include "data_file/stuck_locks.h"
#include "util/diagnostics.h"
#include "util/resources.h"
#include "util/text.h"

namespace ostrum {

namespace {

std::atomic<rt_info*> g_rt_info{nullptr}; // the process's own handle; never closed

void write_signature(data_file_image& image)
{
    memset(image.signature, 0, sizeof image.signature);
    snprintf(image.signature, sizeof image.signature, "ostrum-%2dbit\n", 64);
}

// Whether the process that created the file died before the process id, which comes last. What a host has
// counted into since, for want of its turn, stays as it is.
bool left_unfinished(const mapped_file& file)
{
    const data_file_image& image = *file.image;
    return file.turn.held() && image.pid == 0 && image.counter_count == 0 && image.error_count == 0;
}

// A fresh file gets everything, whatever the flags say.
void initialise_as_asked(rt_info& handle, bool fresh, uint32_t flags)
{
    const auto asked = [fresh, flags](data_file_open_flags flag) { return fresh || (flags & flag) != 0; };
    if (fresh) {
        write_signature(*handle.image);
    }
    if (asked(DATA_FILE_INIT_LOCKS)) {
        initialise_header_locks(handle, !fresh);
    }
    if (asked(DATA_FILE_RESET)) {
        reset_contents(handle);
    }
    if (asked(DATA_FILE_SET_PID)) {
        handle.image->pid = static_cast<uint32_t>(os::process_id());
    }
}

} // namespace

void set_data_file_handle(rt_info* handle)
{
    g_rt_info.store(handle, std::memory_order_release);
}

} // namespace ostrum

using namespace ostrum;

rt_info* __perf_data_file_open(const char* path, uint32_t flags)
{
    heap_ptr<rt_info> handle = heap_zeroed<rt_info>();
    heap_ptr<char> own_path = heap_text(text_or_empty(path));
    if (!handle || !own_path) {
        return nullptr;
    }
    mapped_file file = open_mapped_file(own_path.get(), (flags & DATA_FILE_MUST_EXIST) != 0);
    if (!file.image) {
        return nullptr;
    }
    const bool by_host = (flags & DATA_FILE_SET_PID) != 0; // monitoring programs leave a file as it is
    const bool fresh = file.fresh || (by_host && left_unfinished(file));
    *handle = {file.image.release(), file.fd.release(), own_path.release()};
    initialise_as_asked(*handle, fresh, flags); // in our turn, which ends with this function
    return handle.release();
}

void __perf_data_file_close(rt_info* handle, int32_t unlink)
{
    if (handle == nullptr) {
        if (debug_on(debug_general)) {
            debug_print("perf_data_file_close : NULL rtip passed\n");
        }
        return;
    }
    const heap_ptr<rt_info> own_handle{handle};
    const heap_ptr<char> own_path{handle->path};
    const unsigned address = low_address_bits(handle->image);
    if (debug_on(debug_general)) {
        debug_print("perf_data_file_close : closing dfp[%#x] file[%s]\n", address, handle->path);
    }
    forget_stuck_within(handle->image);
    if (os::unmap(handle->image, sizeof *handle->image) != 0) {
        err_print("perf_data_file_close : failed unmapping dfp[%#x] errno[%d](%s)\n", address, errno,
                  strerror(errno));
    }
    if (os::close_file(handle->fd) != 0) {
        err_print("perf_data_file_close : failed closing fd[%d] errno[%d](%s)\n", handle->fd, errno,
                  strerror(errno));
    }
    if (unlink != 0 && os::unlink_path(handle->path) != 0) {
        err_print("perf_data_file_close : failed unlinking path[%s] errno[%d](%s)\n", handle->path, errno,
                  strerror(errno));
    }
}

int64_t perf_file_size(const char* path)
{
    const char* name = text_or_empty(path);
    struct stat status {};
    if (os::status_of_path(name, status) != 0) {
        err_print("Failed stat on '%s' - %d (%s)\n", name, errno, strerror(errno));
        return -1;
    }
    if (debug_on(debug_general)) {
        debug_print("perf_file_size : file[%s] size[%lld]\n", name, static_cast<long long>(status.st_size));
    }
    return status.st_size;
}

const char* perf_log_datafile_name()
{
    return configured().data_file_name;
}

rt_info* __ostrum_get_data_file_handle()
{
    return g_rt_info.load(std::memory_order_acquire);
}
