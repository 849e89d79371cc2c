#include "readers/data_locks.h"

#include <algorithm>
#include <array>

#include <fcntl.h>
#include <unistd.h>

#include "readers/data_layout.h"

namespace ostrum_tool {
namespace {

constexpr size_t tables_slot = 2;
constexpr std::array slot_names{"trace file", "alarm file", "tables", "contexts", "process metrics"};

size_t slot_offset(size_t slot)
{
    return file_at::lock_slots + slot * lock_at::bytes;
}

void add_if_locked(const image_view& image, size_t slot, std::string name, std::vector<held_lock>& locked)
{
    if (image.half(slot + lock_at::locked) != 0) {
        locked.push_back({std::move(name), image.signed_half(slot + lock_at::owner)});
    }
}

void add_locked_entries(const image_view& image, const table_layout& table, const char* name,
                        std::vector<held_lock>& locked)
{
    for (size_t entry = 0; entry < image.entries_in_use(table); ++entry) {
        add_if_locked(image, table.offset + entry * table.entry_bytes, name + std::to_string(entry), locked);
    }
}

} // namespace

lock_marks lock_method_of(std::span<const unsigned char> image)
{
    const image_view whole(image);
    const size_t slot = slot_offset(tables_slot);
    const auto mutex = whole.part(slot + lock_at::mutex, lock_at::mutex_bytes);
    const bool has_mutex =
        std::any_of(mutex.begin(), mutex.end(), [](unsigned char byte) { return byte != 0; });
    const bool has_range = whole.word(slot + lock_at::range) == slot;
    return has_mutex && has_range ? lock_marks::both
           : has_mutex            ? lock_marks::mutexes
           : has_range            ? lock_marks::advisory
                                  : lock_marks::none;
}

std::vector<held_lock> locked_mutexes(std::span<const unsigned char> image)
{
    const image_view whole(image);
    std::vector<held_lock> locked;
    for (size_t slot = 0; slot < slot_names.size(); ++slot) {
        add_if_locked(whole, slot_offset(slot), slot_names[slot], locked);
    }
    add_locked_entries(whole, counter_table, "counter ", locked);
    add_locked_entries(whole, variable_table, "variable ", locked);
    return locked;
}

std::vector<held_lock> locked_ranges(const std::string& path)
{
    std::vector<held_lock> locked;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    for (size_t slot = 0; fd >= 0 && slot < slot_names.size(); ++slot) {
        struct flock range {};
        range.l_type = F_WRLCK;
        range.l_whence = SEEK_SET;
        range.l_start = static_cast<off_t>(slot_offset(slot));
        range.l_len = lock_at::bytes;
        if (::fcntl(fd, F_GETLK, &range) == 0 && range.l_type != F_UNLCK) {
            locked.push_back({slot_names[slot], range.l_pid});
        }
    }
    if (fd >= 0) {
        ::close(fd);
    }
    return locked;
}

} // namespace ostrum_tool
