#ifndef OSTRUM_TOOL_READERS_DATA_LOCKS_H
#define OSTRUM_TOOL_READERS_DATA_LOCKS_H
// The locks in a data file, looked at from outside: none is taken.
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace ostrum_tool {

enum class lock_marks { none, mutexes, advisory, both };

// The methods that have set up the lock of the tables.
lock_marks lock_method_of(std::span<const unsigned char> image);

struct held_lock {
    std::string name;  // "tables", "counter 17", ...
    int32_t owner = 0; // thread or process; 0: unknown
    bool operator==(const held_lock&) const = default;
};

// Mutexes that are locked in this image: those of the header, of counters and of variables in use.
std::vector<held_lock> locked_mutexes(std::span<const unsigned char> image);
// Record locks on the header's slots, at this moment.
std::vector<held_lock> locked_ranges(const std::string& path);

} // namespace ostrum_tool
#endif
