#include "readers/data_locks.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "readers/data_layout.h"

namespace ostrum_tool {
namespace {

constexpr size_t slots_offset = 32;
constexpr size_t slot_bytes = 64;
constexpr size_t tables_slot = 2;
constexpr size_t mutex_offset = 16; // in a slot
constexpr size_t mutex_bytes = 40;
constexpr size_t owner_offset = 8; // in a mutex, behind the word that says whether it is locked
constexpr std::array slot_names{"trace file", "alarm file", "tables", "contexts", "process metrics"};

int32_t half_word(std::span<const unsigned char> image, size_t offset)
{
    int32_t value = 0;
    std::memcpy(&value, image.data() + offset, sizeof value);
    return value;
}

void add_if_locked(std::span<const unsigned char> image, size_t slot_offset, std::string name,
                   std::vector<held_lock>& locked)
{
    const size_t mutex = slot_offset + mutex_offset;
    if (half_word(image, mutex) != 0) {
        locked.push_back({std::move(name), half_word(image, mutex + owner_offset)});
    }
}

void add_locked_entries(std::span<const unsigned char> image, const table_layout& table, const char* name,
                        std::vector<held_lock>& locked)
{
    uint64_t used = 0;
    std::memcpy(&used, image.data() + table.count_offset, sizeof used);
    for (size_t entry = 0; entry < std::min<uint64_t>(used, table.entries); ++entry) {
        add_if_locked(image, table.offset + entry * table.entry_bytes, name + std::to_string(entry), locked);
    }
}

} // namespace

lock_marks lock_method_of(std::span<const unsigned char> image)
{
    const size_t slot = slots_offset + tables_slot * slot_bytes;
    const auto mutex = image.subspan(slot + mutex_offset, mutex_bytes);
    const bool has_mutex =
        std::any_of(mutex.begin(), mutex.end(), [](unsigned char byte) { return byte != 0; });
    uint64_t range_offset = 0;
    std::memcpy(&range_offset, image.data() + slot + 8, sizeof range_offset);
    const bool has_range = range_offset == slot;
    return has_mutex && has_range ? lock_marks::both
           : has_mutex            ? lock_marks::mutexes
           : has_range            ? lock_marks::advisory
                                  : lock_marks::none;
}

std::vector<held_lock> locked_mutexes(std::span<const unsigned char> image)
{
    std::vector<held_lock> locked;
    for (size_t slot = 0; slot < slot_names.size(); ++slot) {
        add_if_locked(image, slots_offset + slot * slot_bytes, slot_names[slot], locked);
    }
    add_locked_entries(image, counter_table, "counter ", locked);
    add_locked_entries(image, variable_table, "variable ", locked);
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
        range.l_start = static_cast<off_t>(slots_offset + slot * slot_bytes);
        range.l_len = slot_bytes;
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
