#include "flame/flame_colours.h"

namespace ostrum_tool {

int32_t shade_of(std::string_view name)
{
    uint32_t hash = 0x811C9DC5; // FNV-1a
    for (const char c : name) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x01000193U;
    }
    // Names that differ in their last letter only are common, and have to differ in more than a few bits.
    hash = (hash ^ hash >> 16U) * 0x85EBCA6BU;
    hash = (hash ^ hash >> 13U) * 0xC2B2AE35U;
    return static_cast<int32_t>((hash ^ hash >> 16U) % shade_count);
}

int32_t step_of(double change_percent)
{
    size_t step = 0;
    while (step + 1 < change_steps.size() && change_percent >= change_steps[step + 1].from_percent) {
        ++step;
    }
    return static_cast<int32_t>(step);
}

} // namespace ostrum_tool
