#include "prometheus/label_fields.h"

#include <algorithm>
#include <array>

#include <CLI/Validators.hpp>

#include "cli/option_values.h"
#include "output/value_text.h"
#include "prometheus/exposition.h"

namespace ostrum_tool {
namespace {

template <typename Record>
struct label_field {
    const char* field; // as --labels takes it
    const char* label; // as in the JSON of the commands over the data file
    std::string (*text)(const Record& record);
};
using counter = operation_counter;

constexpr std::array<label_field<counter>, 8> operation_fields{
    {{"operation", "name", [](const counter& each) { return each.opname; }},
     {"operation", "opcode", [](const counter& each) { return std::to_string(each.opcode); }},
     {"flags", "flags", [](const counter& each) { return std::to_string(each.opflags); }},
     {"program", "program", [](const counter& each) { return each.program; }},
     {"file", "file", [](const counter& each) { return each.fname; }},
     {"line", "line", [](const counter& each) { return std::to_string(each.lineno); }},
     {"type", "type", [](const counter& each) { return each.obj_type; }},
     {"db", "db", [](const counter& each) { return db_text(each.db_number); }}}};

constexpr std::array<label_field<error_counter>, 7> error_fields{
    {{"error", "error", [](const error_counter& each) { return std::to_string(each.errnum); }},
     {"class", "class", [](const error_counter& each) { return std::to_string(each.err_class); }},
     {"location", "location", [](const error_counter& each) { return std::to_string(each.location); }},
     {"operation", "name", [](const error_counter& each) { return each.opname; }},
     {"operation", "opcode", [](const error_counter& each) { return std::to_string(each.opcode); }},
     {"program", "program", [](const error_counter& each) { return each.program; }},
     {"db", "db", [](const error_counter& each) { return db_text(each.dbno); }}}};

template <typename Fields>
std::vector<std::string> names_of(const Fields& fields)
{
    std::vector<std::string> names;
    for (const auto& field : fields) {
        if (names.empty() || names.back() != field.field) {
            names.emplace_back(field.field);
        }
    }
    return names;
}

template <typename Fields, typename Record>
void add_fields(std::string& labels, const Fields& fields, const Record& record,
                const std::vector<std::string>& chosen)
{
    for (const auto& field : fields) {
        if (std::find(chosen.begin(), chosen.end(), field.field) != chosen.end()) {
            add_label(labels, field.label, field.text(record));
        }
    }
}

} // namespace

void add_key_labels(std::string& labels, const operation_counter& counter, const label_choice& chosen)
{
    add_fields(labels, operation_fields, counter, chosen.operations);
}

void add_key_labels(std::string& labels, const error_counter& error, const label_choice& chosen)
{
    add_fields(labels, error_fields, error, chosen.errors);
}

void add_label_options(CLI::App& app, label_choice& chosen)
{
    add_list(app, "--labels", chosen.operations,
             "Key fields of operations that become labels; the others are added up "
             "(default: operation,flags,program,type,db)")
        ->check(CLI::IsMember(names_of(operation_fields)));
    add_list(app, "--error-labels", chosen.errors, "The same of errors (default: all)")
        ->check(CLI::IsMember(names_of(error_fields)));
}

} // namespace ostrum_tool
