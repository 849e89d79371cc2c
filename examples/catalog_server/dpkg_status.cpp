#include "dpkg_status.h"

#include <array>
#include <charconv>
#include <map>

namespace catalog {
namespace {

constexpr std::string_view blanks = " \t\r";
constexpr std::array requirement_fields{"Pre-Depends", "Depends", "Recommends", "Suggests"};

using paragraph = std::map<std::string, std::string, std::less<>>;

std::string_view trim(std::string_view text)
{
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    for (;;) {
        const size_t end = text.find(separator);
        parts.push_back(trim(text.substr(0, end)));
        if (end == std::string_view::npos)
            return parts;
        text.remove_prefix(end + 1);
    }
}

std::string value_of(const paragraph& fields, std::string_view name)
{
    const auto found = fields.find(name);
    return found == fields.end() ? std::string() : found->second;
}

int32_t number_of(const std::string& text)
{
    int32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && value >= 0 ? value : 0;
}

// Fields whose further lines the catalogue does not hold: long descriptions and file lists.
bool only_first_line(std::string_view name)
{
    return name == "Description" || name == "Conffiles";
}

// The next paragraph's fields; empty at the end of the input.
paragraph next_paragraph(std::istream& in)
{
    paragraph fields;
    auto last = fields.end();
    for (std::string line; std::getline(in, line);) {
        if (trim(line).empty()) {
            if (!fields.empty())
                return fields;
            continue;
        }
        const bool continues = blanks.find(line.front()) != std::string_view::npos;
        const size_t colon = line.find(':');
        if (continues && last != fields.end() && !only_first_line(last->first))
            last->second.append(" ").append(trim(line));
        else if (!continues && colon != std::string::npos && colon > 0)
            last = fields
                       .insert_or_assign(line.substr(0, colon),
                                         std::string(trim(std::string_view(line).substr(colon + 1))))
                       .first;
    }
    return fields;
}

bool is_installed(const paragraph& fields)
{
    const std::string status = value_of(fields, "Status");
    return !value_of(fields, "Package").empty() && split(status, ' ').back() == "installed";
}

package_record record_of(const paragraph& fields)
{
    package_record record;
    record.name = value_of(fields, "Package");
    record.version = value_of(fields, "Version");
    record.section = value_of(fields, "Section");
    record.priority = value_of(fields, "Priority");
    record.architecture = value_of(fields, "Architecture");
    record.summary = value_of(fields, "Description");
    record.installed_kib = number_of(value_of(fields, "Installed-Size"));
    for (const auto& names : parse_relations(value_of(fields, "Provides")))
        record.provides.insert(record.provides.end(), names.begin(), names.end());
    for (const char* kind : requirement_fields) {
        for (auto& alternatives : parse_relations(value_of(fields, kind)))
            record.requirements.push_back({kind, std::move(alternatives)});
    }
    return record;
}

} // namespace

std::vector<std::vector<std::string>> parse_relations(std::string_view text)
{
    std::vector<std::vector<std::string>> relations;
    for (const std::string_view group : split(text, ',')) {
        std::vector<std::string> names;
        for (const std::string_view alternative : split(group, '|')) {
            // A name ends where a version "(>= 1)", an architecture "[amd64]" or a qualifier ":any" begins.
            const std::string_view name = alternative.substr(0, alternative.find_first_of(" \t([:"));
            if (!name.empty())
                names.emplace_back(name);
        }
        if (!names.empty())
            relations.push_back(std::move(names));
    }
    return relations;
}

std::vector<package_record> read_dpkg_status(std::istream& in)
{
    std::vector<package_record> records;
    for (paragraph fields = next_paragraph(in); !fields.empty(); fields = next_paragraph(in)) {
        if (is_installed(fields))
            records.push_back(record_of(fields));
    }
    return records;
}

} // namespace catalog
