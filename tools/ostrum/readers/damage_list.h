#ifndef OSTRUM_TOOL_READERS_DAMAGE_LIST_H
#define OSTRUM_TOOL_READERS_DAMAGE_LIST_H
// What is damaged in one file, and where.
#include <cstdint>
#include <string>
#include <vector>

namespace ostrum_tool {

struct damage {
    uint64_t offset = 0;
    std::string what;
};

struct damage_list {
    static constexpr size_t most_kept = 20; // of each file

    std::vector<damage> first;
    int64_t count = 0; // of all

    void add(uint64_t offset, const std::string& what);
    void add(const damage_list& other);
};

} // namespace ostrum_tool
#endif
