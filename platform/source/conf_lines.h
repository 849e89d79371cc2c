#ifndef QEL_CONF_LINES_H
#define QEL_CONF_LINES_H
// How qel.conf is read. One home for the rules: programs that tell what a host is configured to do have to
// see what the host sees.
#include <istream>
#include <string>
#include <utility>
#include <vector>

namespace qel {

using conf_entries = std::vector<std::pair<std::string, std::string>>; // key, value; in file order

inline std::string trimmed(const std::string& text)
{
    static constexpr const char* blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

inline std::string unquoted(const std::string& value)
{
    const bool quoted = value.size() >= 2 && value.front() == '"' && value.back() == '"';
    return quoted ? value.substr(1, value.size() - 2) : value;
}

inline bool is_section_line(const std::string& line)
{
    return line.size() >= 2 && line.front() == '[' && line.back() == ']';
}

// The entries of a program's section. Of a key that stands there twice the first one counts.
inline conf_entries entries_of(std::istream& file, const std::string& program)
{
    conf_entries entries;
    bool inside = false;
    for (std::string raw; std::getline(file, raw);) {
        const std::string line = trimmed(raw);
        const size_t equals = line.find('=');
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (is_section_line(line)) {
            inside = trimmed(line.substr(1, line.size() - 2)) == program;
        } else if (inside && equals != std::string::npos) {
            entries.emplace_back(trimmed(line.substr(0, equals)), unquoted(trimmed(line.substr(equals + 1))));
        }
    }
    return entries;
}

} // namespace qel
#endif
