#include <algorithm>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "flame/flame_colours.h"
#include "flame/flame_output.h"
#include "output/markup_text.h"
#include "output/value_text.h"

namespace ostrum_tool {
namespace {

constexpr double picture_width = 1200;
constexpr double margin = 10;
constexpr double frame_height = 18;
constexpr double head_height = 52; // title and the line about it
constexpr double thinnest = 0.25;
constexpr double character_width = 7.3; // of a fixed-width font of 12 units, rounded up

// In text and attributes. The texts hold no control characters; what else XML has no place for is replaced.
std::string xml_text(std::string_view text)
{
    std::string safe = markup_text(text);
    for (const std::string_view no_character : {"\xEF\xBF\xBE", "\xEF\xBF\xBF"}) {
        for (size_t at = safe.find(no_character); at != std::string::npos; at = safe.find(no_character, at)) {
            safe.replace(at, no_character.size(), "\xEF\xBF\xBD");
        }
    }
    return safe;
}

// What fits, cut between characters; nothing where hardly a letter would.
std::string fitting(const std::string& text, double width)
{
    const auto most = static_cast<size_t>(std::max(0.0, (width - 6) / character_width));
    if (display_width(text) <= most) {
        return text;
    }
    if (most < 3) {
        return "";
    }
    size_t end = 0;
    for (size_t shown = 0; shown < most - 1; ++shown) {
        ++end;
        while (end < text.size() && continues_character(text[end])) {
            ++end;
        }
    }
    return text.substr(0, end) + "\xE2\x80\xA6";
}

std::string side_text(const path_figures& side)
{
    return side.present
               ? fmt::format("{} in {} {}, {} on average, {} in itself, {} with error",
                             duration_text(side.total_tv), side.sums.calls,
                             side.sums.calls == 1 ? "call" : "calls", duration_text(side.sums.average_tv()),
                             duration_text(side.self_tv), side.sums.errors)
               : "-";
}

class picture {
public:
    picture(std::ostream& out, const flame_graph& graph, const flame_view& view)
        : out_(out), graph_(graph), view_(view), left_(graph.frames.size(), margin),
          free_(graph.frames.size(), margin)
    {
        const int64_t all = width_tv(graph.frames.front());
        scale_ = all > 0 ? (picture_width - 2 * margin) / static_cast<double>(all) : 0;
        for (const flame_frame& frame : graph.frames) {
            levels_ = drawn_width(frame) >= thinnest ? std::max(levels_, frame.depth + 1) : levels_;
        }
    }

    void write()
    {
        const double height = head_height + levels_ * frame_height + margin;
        out_ << fmt::format("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
                            "viewBox=\"0 0 {0} {1}\" font-family=\"monospace\" font-size=\"12\">\n"
                            "<style>rect{{stroke:#fff;stroke-width:.5}}</style>\n"
                            "<rect width=\"{0}\" height=\"{1}\" fill=\"#fff\"/>\n"
                            "<text x=\"{2}\" y=\"22\" font-size=\"16\">{3}</text>\n"
                            "<text x=\"{2}\" y=\"40\" fill=\"#57606a\">{4}</text>\n",
                            picture_width, height, margin, xml_text(view_.title), xml_text(view_.about));
        for (size_t number = 0; number < graph_.frames.size(); ++number) {
            place_and_draw(number);
        }
        out_ << "</svg>\n";
    }

private:
    [[nodiscard]] int64_t width_tv(const flame_frame& frame) const
    {
        int64_t both = frame.width_tv;
        add_bounded(both, frame.before_width_tv);
        return view_.width == "before" ? frame.before_width_tv
               : view_.width == "both" ? both
                                       : frame.width_tv;
    }
    [[nodiscard]] double drawn_width(const flame_frame& frame) const
    {
        return static_cast<double>(width_tv(frame)) * scale_;
    }

    // Each frame stands behind its elder siblings: free_ is where the next callee of a frame goes.
    void place_and_draw(size_t number)
    {
        const flame_frame& frame = graph_.frames[number];
        const double width = drawn_width(frame);
        if (number > 0) {
            left_[number] = free_[frame.caller];
            free_[frame.caller] += width;
        }
        free_[number] = left_[number];
        if (width < thinnest) {
            return;
        }
        const int level = view_.icicle ? frame.depth : levels_ - 1 - frame.depth;
        const double top = head_height + level * frame_height;
        out_ << fmt::format("<g><title>{}</title><rect x=\"{:.2f}\" y=\"{:.0f}\" width=\"{:.2f}\" "
                            "height=\"{:.0f}\" fill=\"{}\"/>",
                            xml_text(tooltip(frame)), left_[number], top, width, frame_height, colour(frame));
        const std::string text = fitting(frame.label, width);
        if (!text.empty()) {
            out_ << fmt::format("<text x=\"{:.2f}\" y=\"{:.0f}\">{}</text>", left_[number] + 3, top + 13,
                                xml_text(text));
        }
        out_ << "</g>\n";
    }

    [[nodiscard]] const char* colour(const flame_frame& frame) const
    {
        if (graph_.compared) {
            return change_steps[static_cast<size_t>(frame.step)].colour;
        }
        const auto palette =
            std::find_if(flame_palettes.begin(), flame_palettes.end(),
                         [&](const flame_palette& each) { return view_.palette == each.name; });
        return frame.shade < 0 ? quiet_colour : palette->shades[static_cast<size_t>(frame.shade)];
    }

    [[nodiscard]] std::string tooltip(const flame_frame& frame) const
    {
        const auto all = static_cast<double>(width_tv(graph_.frames.front()));
        std::string text = frame.label + (frame.detail.empty() ? "" : " - " + frame.detail) + "\n" +
                           percent_text(static_cast<double>(width_tv(frame)) * 100.0 / all) + " of all, ";
        if (!frame.after.present && !frame.before.present) {
            return text + duration_text(width_tv(frame));
        }
        if (!graph_.compared) {
            return text + side_text(frame.after);
        }
        text +=
            fmt::format("{}\nafter: {}\nbefore: {}",
                        frame.change_percent ? fmt::format("{} {:+.1f}%", view_.metric, *frame.change_percent)
                        : !frame.before.present ? "new"
                        : !frame.after.present  ? "gone"
                                                : "",
                        side_text(frame.after), side_text(frame.before));
        return text;
    }

    std::ostream& out_;
    const flame_graph& graph_;
    const flame_view& view_;
    double scale_ = 0;                // units a nanosecond
    int levels_ = 0;                  // that are drawn
    std::vector<double> left_, free_; // by frame
};

} // namespace

void write_flame_svg(std::ostream& out, const flame_graph& graph, const flame_view& view)
{
    picture(out, graph, view).write();
}

} // namespace ostrum_tool
