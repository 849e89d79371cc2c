// Lists of opcodes: what was normalised normalises to itself and is what the reader of numbers reads.
#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz/fuzz_target.h"
#include "host_access/opcode_list.h"
#include "host_access/opcode_names.h"

using namespace ostrum;

namespace {

constexpr char canary = '!';

struct outcome {
    int32_t result;
    std::string text;
};

outcome normalized(const std::string& list, size_t room)
{
    std::vector<char> out(room + 1, canary);
    const int32_t result = normalize_oplist(out.data(), static_cast<int32_t>(room), list.c_str());
    fuzz::must(out[room] == canary, "the result keeps within its room");
    fuzz::must(strnlen(out.data(), room) < room, "the result has an end");
    return {result, out.data()};
}

std::string joined(const trace_opcode_list& list)
{
    std::string text;
    for (int32_t at = 0; at < list.count; ++at) {
        text += (at > 0 ? "," : "") + std::to_string(list.opcodes.get()[at]);
    }
    return text;
}

void check_normalized(const std::string& text)
{
    const outcome again = normalized(text, text.size() + 1);
    fuzz::must(again.result == 0 && again.text == text, "what was normalised normalises to itself", text);
    const trace_opcode_list list = build_opcode_trace_list(text.c_str());
    fuzz::must(joined(list) == text, "what was normalised is read number by number", text);
    for (int32_t at = 0; at < list.count; ++at) {
        fuzz::must(list.opcodes.get()[at] > 0, "an opcode is above 0", text);
    }
}

void check_numbers(const std::string& list)
{
    const trace_opcode_list numbers = build_opcode_trace_list(list.c_str());
    fuzz::must(numbers.count <= std::count(list.begin(), list.end(), ',') + 1, "no number from nowhere",
               list);
    const std::string text = joined(numbers);
    fuzz::must(joined(build_opcode_trace_list(text.c_str())) == text, "numbers that were read read back",
               text);
}

} // namespace

// Two bytes of room for the result, then the list.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    get_opnum("op_read"); // the platform reads its names once
    const fuzz::nothing_left_behind watch;
    if (size < 2) {
        return 0;
    }
    const std::string_view rest = fuzz::text_of(data + 2, size - 2);
    const std::string list(rest.substr(0, rest.find('\0')));
    const outcome whole = normalized(list, 12 * list.size() + 2);
    fuzz::must(whole.result == 0 || (whole.result == -2 && whole.text.empty()),
               "taken, or refused without a result", list);
    if (whole.result == 0 && !whole.text.empty()) {
        check_normalized(whole.text);
    }
    const outcome cut = normalized(list, 1 + data[0] + size_t{256} * (data[1] % 16));
    fuzz::must(cut.result == whole.result && whole.text.starts_with(cut.text), "a result without room is cut",
               list);
    check_numbers(list);
    return 0;
}
