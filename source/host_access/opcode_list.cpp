#include "host_access/opcode_list.h"

#include "host_access/opcode_names.h"
#include "ostrum_util.h"
#include "util/diagnostics.h"
#include "util/text.h"

#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

using namespace ostrum;

namespace {

enum normalize_outcome : int32_t { normalized = 0, bad_output = -1, bad_item = -2, no_memory = -4 };

constexpr int32_t builder_step_bytes = 1024;
constexpr size_t item_bytes = 256;
constexpr int32_t list_growth = 32;

struct destroy_builder {
    void operator()(string_builder* builder) const { string_builder_destroy(builder); }
};
using builder_ptr = std::unique_ptr<string_builder, destroy_builder>;

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

// False when the item was cut to the room that there is.
bool copy_without_blanks(char (&out)[item_bytes], std::string_view item)
{
    size_t length = 0;
    for (const char c : item) {
        if (is_blank(c)) {
            continue;
        }
        if (length == item_bytes - 1) {
            out[length] = '\0';
            return false;
        }
        out[length++] = c;
    }
    out[length] = '\0';
    return true;
}

// The opcode that the item names; none after a diagnostic line.
std::optional<int32_t> resolve(std::string_view item)
{
    char name[item_bytes];
    if (!copy_without_blanks(name, item)) {
        const int length = static_cast<int>(item.size());
        err_print("normalize_oplist : opcode[%-*.*s] is too long - truncated to[%s]\n", length, length,
                  item.data(), name);
        return std::nullopt;
    }
    const int32_t opcode = get_opnum(name);
    if (opcode < 1) {
        err_print("normalize_oplist : opcode[%s] not recognized\n", name);
        return std::nullopt;
    }
    return opcode;
}

normalize_outcome append_opcodes(string_builder* numbers, std::string_view list)
{
    for (const char* separator = "";; separator = ",") {
        const size_t comma = list.find(',');
        const std::optional<int32_t> opcode = resolve(list.substr(0, comma));
        if (!opcode) {
            return bad_item;
        }
        if (string_builder_add_strfmt(numbers, "%s%d", separator, *opcode) != 0) {
            return no_memory;
        }
        if (comma == std::string_view::npos) {
            return normalized;
        }
        list.remove_prefix(comma + 1);
    }
}

// The number that makes up the whole element, which ends at `end`.
std::optional<int32_t> whole_number(const char* element, const char* end)
{
    char* behind = nullptr;
    const long number = strtol(element, &behind, 10);
    const bool well_formed = behind == end && behind != element;
    if (!well_formed || number < INT32_MIN || number > INT32_MAX) {
        return std::nullopt;
    }
    return static_cast<int32_t>(number);
}

bool append(trace_opcode_list& list, int32_t opcode)
{
    if (list.count % list_growth == 0) {
        const size_t bytes = sizeof(int32_t) * static_cast<size_t>(list.count + list_growth);
        auto* grown = static_cast<int32_t*>(os::reallocate(list.opcodes.get(), bytes));
        if (grown == nullptr) {
            return false;
        }
        static_cast<void>(list.opcodes.release()); // moved or kept by the call above
        list.opcodes.reset(grown);
    }
    list.opcodes.get()[list.count++] = opcode;
    return true;
}

void debug_list(const trace_opcode_list& list)
{
    debug_print("build_opcode_trace_list: found %d opcodes:\n", list.count);
    for (int32_t i = 0; i < list.count; ++i) {
        debug_print("   opcode[%d] => %d\n", i, list.opcodes.get()[i]);
    }
}

} // namespace

int32_t normalize_oplist(char* out, int32_t out_size, const char* list)
{
    if (out == nullptr || out_size < 1) {
        return bad_output;
    }
    out[0] = '\0';
    const builder_ptr numbers{string_builder_create(builder_step_bytes)};
    if (!numbers) {
        return no_memory;
    }
    const char* items = text_or_empty(list);
    if (items[strspn(items, " \t")] == '\0') {
        return normalized; // no item at all: no opcode is chosen
    }
    const normalize_outcome outcome = append_opcodes(numbers.get(), items);
    if (outcome != normalized) {
        return outcome;
    }
    const char* text = string_builder_data(numbers.get());
    const int32_t length = string_builder_used(numbers.get());
    if (length >= out_size) {
        err_print("normalize_oplist : normalized list[%s] is %d chars, but buffer len is only %d\n", text,
                  length, out_size);
    }
    copy_text(out, static_cast<size_t>(out_size), text);
    return normalized;
}

trace_opcode_list ostrum::build_opcode_trace_list(const char* text)
{
    trace_opcode_list list;
    const char* element = text_or_empty(text);
    while (element[0] != '\0') {
        const char* end = strchrnul(element, ',');
        const std::optional<int32_t> opcode = whole_number(element, end);
        if (opcode && !append(list, *opcode)) {
            err_print("build_opcode_trace_list : out of memory\n");
            return {};
        }
        element = end[0] == ',' ? end + 1 : end;
    }
    if (debug_on(debug_general)) {
        debug_list(list);
    }
    return list;
}
