// Operation names: the built-in ones, and those of qel.conf's section "opcodes", which come first.
#include "opcodes.h"

#include "conf.h"
#include "error.h"
#include "published.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <map>

namespace {

struct named_opcode {
    int32_t number;
    const char* name;
};
constexpr std::array built_in{
    named_opcode{1, "op_create"},       named_opcode{2, "op_delete"},
    named_opcode{3, "op_read"},         named_opcode{4, "op_read_fields"},
    named_opcode{5, "op_write"},        named_opcode{6, "op_delete_fields"},
    named_opcode{7, "op_search"},       named_opcode{8, "op_increment"},
    named_opcode{9, "op_echo"},         named_opcode{10, "op_ping"},
    named_opcode{11, "op_lock"},        named_opcode{12, "op_unlock"},
    named_opcode{13, "op_status"},      named_opcode{14, "op_touch"},
    named_opcode{15, "op_login"},       named_opcode{16, "op_logout"},
    named_opcode{17, "op_search_page"}, named_opcode{18, "op_next_page"},
    named_opcode{19, "op_first_match"}, named_opcode{20, "op_validate"},
    named_opcode{21, "op_refresh"},     named_opcode{22, "op_begin"},
    named_opcode{23, "op_commit"},      named_opcode{24, "op_rollback"},
    named_opcode{25, "op_search_all"},  named_opcode{26, "op_create_many"},
    named_opcode{27, "op_write_many"},  named_opcode{28, "op_delete_many"},
    named_opcode{29, "op_notify"},      named_opcode{30, "op_checkpoint"},
    named_opcode{31, "op_execute"},     named_opcode{40, "op_link"},
    named_opcode{41, "op_unlink"},      named_opcode{42, "op_list_links"},
    named_opcode{49, "op_archive"},
};

using name_table = std::map<int32_t, std::string>;
constinit qel::published<name_table> configured;

name_table read_configured()
{
    name_table names;
    for (const auto& [key, name] : qel::conf_section("opcodes")) {
        int32_t number = 0;
        const auto [end, failure] = std::from_chars(key.data(), key.data() + key.size(), number);
        const bool is_number = failure == std::errc() && end == key.data() + key.size();
        if (is_number && number > 0 && !name.empty()) {
            names.emplace(number, name);
        }
    }
    return names;
}

// Null when memory is short.
const name_table* configured_names()
{
    if (configured.get() == nullptr) {
        qel::load_opcode_names();
    }
    return configured.get();
}

const char* built_in_name(int32_t opcode)
{
    const auto* found = std::find_if(built_in.begin(), built_in.end(),
                                     [opcode](const named_opcode& known) { return known.number == opcode; });
    return found != built_in.end() ? found->name : nullptr;
}

} // namespace

bool qel::load_opcode_names()
{
    return guarded(nullptr, QEL_LOC_CONF, [] {
        configured.replace(read_configured());
        return true;
    });
}

const char* tbx_opcode_to_opname(int32_t opcode)
{
    if (const name_table* names = configured_names()) {
        const auto found = names->find(opcode);
        if (found != names->end()) {
            return found->second.c_str();
        }
    }
    const char* name = built_in_name(opcode);
    return name != nullptr ? name : "unknown";
}

int32_t tbx_opname_to_opcode(const char* name)
{
    if (name == nullptr) {
        return 0;
    }
    if (const name_table* names = configured_names()) {
        for (const auto& [number, known] : *names) {
            if (known == name) {
                return number;
            }
        }
    }
    for (const named_opcode& known : built_in) {
        // a number that was given another name is no longer known by its built-in one
        if (strcmp(known.name, name) == 0 && strcmp(tbx_opcode_to_opname(known.number), name) == 0) {
            return known.number;
        }
    }
    return 0;
}
