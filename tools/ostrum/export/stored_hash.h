#ifndef OSTRUM_TOOL_EXPORT_STORED_HASH_H
#define OSTRUM_TOOL_EXPORT_STORED_HASH_H
#include <cstdint>
#include <string_view>

namespace ostrum_tool {

inline constexpr uint64_t stored_hash_start = 0xCBF29CE484222325;

// FNV-1a: databases hold it, so that it has to be the same in every build.
inline uint64_t stored_hash(uint64_t hash, std::string_view text)
{
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    }
    return hash;
}

} // namespace ostrum_tool
#endif
