#ifndef OSTRUM_TOOL_READERS_DATA_LAYOUT_H
#define OSTRUM_TOOL_READERS_DATA_LAYOUT_H
// Where the data file holds what, and how it is taken from a copy of the file. All offsets are here.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>

namespace ostrum_tool {

inline constexpr char data_signature[] = "ostrum-64bit\n";
inline constexpr size_t text_bytes = 128;   // of every text but a variable's value
inline constexpr size_t value_bytes = 1024; // of that

struct table_layout {
    const char* name;
    size_t offset, entry_bytes, entries, count_offset;
};
inline constexpr table_layout counter_table{"counters", 368, 656, 4096, 2'687'344};
inline constexpr table_layout variable_table{"variables", 2'687'352, 1216, 512, 3'309'944};
inline constexpr table_layout error_table{"errors", 3'309'960, 304, 8192, 5'800'328};

namespace file_at {
inline constexpr size_t lock_slots = 32, pid = 352, variables_changed = 3'309'952, metrics = 5'800'336;
}

// Of a lock slot, 64 bytes: five in the header, and one at the begin of each counter and each variable.
namespace lock_at {
inline constexpr size_t bytes = 64, range = 8, mutex = 16, mutex_bytes = 40;
inline constexpr size_t locked = mutex, owner = mutex + 8; // of the mutex, 32 bits each
} // namespace lock_at

namespace counter_at {
inline constexpr size_t opname = 64, program = 192, fname = 320, obj_type = 448, opcode = 576, opflags = 584,
                        lineno = 592, recs = 600, calls = 608, errors = 616, total_tv = 624,
                        user_cpu_tv = 632, sys_cpu_tv = 640, db_number = 648;
}

namespace variable_at {
inline constexpr size_t name = 64, value = 192;
}

namespace error_at {
inline constexpr size_t dbno = 0, opcode = 8, opname = 16, program = 144, err_class = 272, location = 280,
                        errnum = 288, count = 296;
}

// A view of the whole file or of one entry, with the kinds of fields that exist.
class image_view {
public:
    explicit image_view(std::span<const unsigned char> bytes) : bytes_(bytes) {}

    [[nodiscard]] uint64_t word(size_t offset) const { return value_at<uint64_t>(offset); }
    [[nodiscard]] int64_t number(size_t offset) const { return value_at<int64_t>(offset); }
    // The lower half of a word.
    [[nodiscard]] uint32_t half(size_t offset) const { return value_at<uint32_t>(offset); }
    [[nodiscard]] int32_t signed_half(size_t offset) const { return value_at<int32_t>(offset); }
    // Up to its end, or to the last but one byte of its field.
    [[nodiscard]] std::string text(size_t offset, size_t size) const
    {
        const auto field = bytes_.subspan(offset, size - 1);
        return {field.begin(), std::find(field.begin(), field.end(), 0)};
    }
    [[nodiscard]] std::span<const unsigned char> part(size_t offset, size_t size) const
    {
        return bytes_.subspan(offset, size);
    }

    // Of the whole file.
    [[nodiscard]] bool has_signature() const
    {
        return std::memcmp(bytes_.data(), data_signature, sizeof(data_signature)) == 0;
    }
    [[nodiscard]] size_t entries_in_use(const table_layout& table) const
    {
        return std::min<uint64_t>(word(table.count_offset), table.entries);
    }
    [[nodiscard]] image_view entry(const table_layout& table, size_t index) const
    {
        return image_view(part(table.offset + index * table.entry_bytes, table.entry_bytes));
    }
    // What is wrong with a table's count; empty when nothing is.
    [[nodiscard]] std::string overfull_text(const table_layout& table) const
    {
        const uint64_t claimed = word(table.count_offset);
        return claimed <= table.entries ? ""
                                        : "claims " + std::to_string(claimed) + " " + table.name + ", of " +
                                              std::to_string(table.entries) + " at most";
    }

private:
    template <typename Value>
    [[nodiscard]] Value value_at(size_t offset) const
    {
        Value value{};
        std::memcpy(&value, bytes_.data() + offset, sizeof value);
        return value;
    }

    std::span<const unsigned char> bytes_;
};

} // namespace ostrum_tool
#endif
