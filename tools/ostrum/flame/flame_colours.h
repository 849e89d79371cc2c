#ifndef OSTRUM_TOOL_FLAME_FLAME_COLOURS_H
#define OSTRUM_TOOL_FLAME_FLAME_COLOURS_H
// The colours of frames. Black text can be read on all of them.
#include <array>
#include <cstdint>
#include <string_view>

namespace ostrum_tool {

inline constexpr size_t shade_count = 8;

struct flame_palette {
    const char* name; // as --palette takes it
    std::array<const char*, shade_count> shades;
};

// What stays apart for people who see fewer colours is "safe": the shades differ in lightness and between
// blue and yellow.
inline constexpr std::array<flame_palette, 2> flame_palettes{
    {{"warm", {"#f2775a", "#f58b4c", "#f79d53", "#fab05f", "#fcc46a", "#f9d57e", "#f0a878", "#eb8f74"}},
     {"safe", {"#e69f00", "#56b4e9", "#2fbf98", "#f0e442", "#9ec5e8", "#e8894a", "#dda0c4", "#c0c0c0"}}}};

// From much less to much more, through no change: blue to orange, which stays apart for all.
struct change_step {
    double from_percent; // lower bound of the change
    const char* colour;
    const char* text;
};
inline constexpr int32_t unchanged_step = 4;
inline constexpr std::array<change_step, 9> change_steps{{{-1e300, "#4f9fd6", "-50% and less, gone"},
                                                          {-50, "#7db8e0", "-20%"},
                                                          {-20, "#a8d0ea", "-10%"},
                                                          {-10, "#d0e5f3", "-2%"},
                                                          {-2, "#ececec", "about the same"},
                                                          {2, "#fde0c5", "+2%"},
                                                          {10, "#fbbf87", "+10%"},
                                                          {20, "#f59a55", "+20%"},
                                                          {50, "#ea7a2c", "+50% and more, new"}}};

inline constexpr const char* matched_colour = "#c792ea"; // by a search
inline constexpr const char* quiet_colour = "#d9dde2";   // not matched; no operation

// Names have the same shade wherever they appear.
int32_t shade_of(std::string_view name);
int32_t step_of(double change_percent);

} // namespace ostrum_tool
#endif
