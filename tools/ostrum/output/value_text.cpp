#include "output/value_text.h"

#include <algorithm>
#include <cwchar>

#include <fmt/format.h>

#include "readers/time_units.h"

namespace ostrum_tool {
namespace {

// Three digits that count: 1.23, 12.3, 123.
std::string three_digits(double value, const char* unit)
{
    const int decimals = value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
    return fmt::format("{:.{}f}{}", value, decimals, unit);
}

// Bytes of the UTF-8 character at the begin of a text; 0 when there is none.
size_t character_bytes(std::string_view text)
{
    const auto byte = [&](size_t at) { return static_cast<unsigned char>(text[at]); };
    const size_t length = byte(0) < 0x80   ? 1
                          : byte(0) < 0xC2 ? 0
                          : byte(0) < 0xE0 ? 2
                          : byte(0) < 0xF0 ? 3
                          : byte(0) < 0xF5 ? 4
                                           : 0;
    if (length == 0 || length > text.size()) {
        return 0;
    }
    for (size_t at = 1; at < length; ++at) {
        if (!continues_character(text[at])) {
            return 0;
        }
    }
    const bool overlong_or_surrogate =
        (byte(0) == 0xE0 && byte(1) < 0xA0) || (byte(0) == 0xED && byte(1) > 0x9F) ||
        (byte(0) == 0xF0 && byte(1) < 0x90) || (byte(0) == 0xF4 && byte(1) > 0x8F);
    return overlong_or_surrogate ? 0 : length;
}

// The first character of a text, or its first byte when that begins none.
std::string_view first_character(std::string_view text)
{
    return text.substr(0, std::max<size_t>(character_bytes(text), 1));
}

// As terminals have it: East Asian characters take two columns, combining marks none. Outside a UTF-8 locale
// nothing is known of them, and each takes one.
size_t columns_of(std::string_view character)
{
    const auto first = static_cast<unsigned char>(character.front());
    if (character.size() == 1) {
        return 1;
    }
    wchar_t code = first & (0x7FU >> character.size());
    for (const char c : character.substr(1)) {
        code = code << 6 | (static_cast<unsigned char>(c) & 0x3F);
    }
    const int columns = wcwidth(code);
    return columns < 0 ? 1 : static_cast<size_t>(columns);
}

// C0 and C1 controls, and what reorders or hides text.
bool acts_on_terminal(std::string_view character)
{
    const auto byte = [&](size_t at) { return static_cast<unsigned char>(character[at]); };
    if (character.size() == 1) {
        return byte(0) < 0x20 || byte(0) == 0x7F;
    }
    if (character.size() == 2) {
        return byte(0) == 0xC2 && byte(1) < 0xA0;
    }
    const bool general_punctuation = character.size() == 3 && byte(0) == 0xE2;
    return general_punctuation &&
           ((byte(1) == 0x80 && (byte(2) >= 0xA8 || (byte(2) >= 0x8B && byte(2) <= 0x8F)) &&
             byte(2) <= 0xAE) ||
            (byte(1) == 0x81 && byte(2) >= 0xA0 && byte(2) <= 0xAF));
}

} // namespace

std::string duration_text(int64_t duration_tv)
{
    if (duration_tv < 0) {
        return duration_tv == INT64_MIN ? "-" + duration_text(INT64_MAX) : "-" + duration_text(-duration_tv);
    }
    const auto ns = static_cast<double>(duration_tv);
    if (duration_tv < 1'000) {
        return fmt::format("{}ns", duration_tv);
    }
    if (ns < 999.5e3) {
        return three_digits(ns / 1e3, "us");
    }
    if (ns < 999.5e6) {
        return three_digits(ns / 1e6, "ms");
    }
    if (ns < 99.95e9) {
        return three_digits(ns / 1e9, "s");
    }
    const int64_t seconds = duration_tv / ns_per_second;
    if (seconds < 3600) {
        return fmt::format("{}m{:02}s", seconds / 60, seconds % 60);
    }
    return fmt::format("{}h{:02}m", seconds / 3600, seconds / 60 % 60);
}

std::string percent_text(double percent)
{
    return fmt::format("{:.1f}%", percent);
}

std::string printable(std::string_view text)
{
    std::string shown;
    while (!text.empty()) {
        const std::string_view character = first_character(text);
        if (character_bytes(character) == 0 || acts_on_terminal(character)) {
            for (const char c : character) {
                shown += fmt::format("\\x{:02X}", static_cast<unsigned char>(c));
            }
        } else {
            shown += character;
        }
        text.remove_prefix(character.size());
    }
    return shown;
}

size_t display_width(std::string_view text)
{
    size_t width = 0;
    while (!text.empty()) {
        const std::string_view character = first_character(text);
        width += columns_of(character);
        text.remove_prefix(character.size());
    }
    return width;
}

std::string cut_to(std::string_view text, size_t width)
{
    if (width == 0 || display_width(text) <= width) {
        return std::string(text);
    }
    size_t taken = 0;
    size_t columns = 0;
    for (;;) {
        const std::string_view character = first_character(text.substr(taken));
        columns += columns_of(character);
        if (columns >= width) {
            return std::string(text.substr(0, taken)) + ">";
        }
        taken += character.size();
    }
}

std::string padded(const std::string& text, size_t width, bool right)
{
    const std::string blanks(width - std::min(width, display_width(text)), ' ');
    return right ? blanks + text : text + blanks;
}

std::string operation_text(std::string_view opname, int32_t opcode)
{
    const std::string name = opname.empty() ? "(no name)" : printable(opname);
    return opcode > 0 ? fmt::format("{} ({})", name, opcode) : name;
}

std::string source_text(std::string_view fname, int32_t lineno)
{
    return fname.empty() ? "" : fmt::format("{}:{}", printable(fname), lineno);
}

std::string db_text(int64_t db_number)
{
    const auto group = [bits = static_cast<uint64_t>(db_number)](unsigned shift) {
        return bits >> shift & 0xFFFFU;
    };
    return fmt::format("{}.{}.{}.{}", group(48), group(32), group(16), group(0));
}

std::string lower_case(std::string_view text)
{
    std::string lower(text);
    for (char& c : lower) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return lower;
}

std::string shell_word(const std::string& text)
{
    const char* const plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./,:=@%+";
    if (!text.empty() && text.find_first_not_of(plain) == std::string::npos) {
        return text;
    }
    std::string word = "'";
    for (const char c : text) {
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return word + "'";
}

} // namespace ostrum_tool
