#ifndef CATALOG_DPKG_STATUS_H
#define CATALOG_DPKG_STATUS_H
// Reader of the Debian package database's status file: paragraphs of "Name: value" lines, separated by
// blank lines; a line that begins with a blank continues the value above it.
#include <cstdint>
#include <istream>
#include <string>
#include <string_view>
#include <vector>

namespace catalog {

// One thing a package asks for; any of the alternatives will do.
struct requirement {
    std::string kind; // field it stands in: "Depends", "Pre-Depends", "Recommends" or "Suggests"
    std::vector<std::string> alternatives;
};

struct package_record {
    std::string name;
    std::string version;
    std::string section;
    std::string priority;
    std::string architecture;
    std::string summary;
    int32_t installed_kib = 0;
    std::vector<std::string> provides; // further names it answers to
    std::vector<requirement> requirements;
};

// The installed packages, in file order. Paragraphs without a name, of packages that are not installed
// (configuration left over) and lines that are no field are passed over.
std::vector<package_record> read_dpkg_status(std::istream& in);

// "a (>= 1) | b:any, c" gives {{a, b}, {c}}: the names alone.
std::vector<std::vector<std::string>> parse_relations(std::string_view text);

} // namespace catalog
#endif
