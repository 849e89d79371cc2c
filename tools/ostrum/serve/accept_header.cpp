#include "serve/accept_header.h"

#include <algorithm>
#include <charconv>
#include <string>

#include "output/value_text.h"

namespace ostrum_tool {
namespace {

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view blanks = " \t";
    const size_t from = std::min(text.find_first_not_of(blanks), text.size());
    return text.substr(from, text.find_last_not_of(blanks) + 1 - from);
}

// Takes the part up to the separator, and the separator, off the text.
std::string_view take_part(std::string_view& text, char separator)
{
    const size_t end = std::min(text.find(separator), text.size());
    const std::string_view part = trimmed(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

struct media_range {
    std::string type;
    std::string version; // "": any
    double weight = 1;   // 0: not at all
};

media_range media_range_of(std::string_view text)
{
    media_range range{lower_case(take_part(text, ';')), "", 1};
    while (!text.empty()) {
        std::string_view value = take_part(text, ';');
        const std::string name = lower_case(take_part(value, '='));
        if (name == "version") {
            range.version =
                value.size() > 1 && value.front() == '"' ? value.substr(1, value.size() - 2) : value;
        } else if (name == "q") {
            std::from_chars(value.data(), value.data() + value.size(), range.weight);
        }
    }
    return range;
}

} // namespace

exposition_format format_for(std::string_view accept)
{
    double openmetrics = 0;
    double text = 0;
    while (!accept.empty()) {
        const media_range range = media_range_of(take_part(accept, ','));
        if (range.type == "application/openmetrics-text" &&
            (range.version.empty() || range.version == "1.0.0")) {
            openmetrics = std::max(openmetrics, range.weight);
        } else if (range.type == "text/plain" && (range.version.empty() || range.version == "0.0.4")) {
            text = std::max(text, range.weight);
        }
    }
    return openmetrics > 0 && openmetrics >= text ? exposition_format::openmetrics_1_0
                                                  : exposition_format::text_0_0_4;
}

} // namespace ostrum_tool
