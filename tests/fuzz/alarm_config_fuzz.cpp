// The alarm configuration, as a file and as a text: what is taken keeps the table's rules and, written out
// again, is taken alike.
#include <algorithm>
#include <cstring>
#include <memory>

#include "fuzz/fuzz_target.h"
#include "host_access/opcode_names.h"
#include "perf_log/alarms/alarm_config.h"
#include "util/time_value.h"

using namespace ostrum;

namespace {

constexpr uint32_t all_flags = 0x1F;
constexpr size_t longest_line = 1022;

struct loaded {
    int32_t result = -1;
    std::unique_ptr<alarm_entry[]> entries = std::make_unique<alarm_entry[]>(opcode_table_size);

    alarm_table& table() { return *reinterpret_cast<alarm_table*>(entries.get()); }
    [[nodiscard]] int32_t named() const
    {
        return result - (entries[default_entry_index].opcode != unused_opcode ? 1 : 0);
    }
};

void check_limit(const alarm_limit& limit, int32_t at, bool is_last)
{
    const size_t severity_length = strnlen(limit.severity, severity_bytes);
    fuzz::must(limit.index == at && limit.threshold_tv >= 0, "a limit has its place and its time");
    fuzz::must((limit.flags & ~all_flags) == 0, "only known flags are set");
    fuzz::must((limit.flags & alarm_recurring) == 0 || is_last, "only the last limit recurs");
    fuzz::must(limit.max_flist_bytes == 0 || ((limit.flags & alarm_log_flist) != 0), "a size has its flag");
    fuzz::must(limit.max_flist_bytes >= 0 && severity_length < severity_bytes, "a size, a text");
    fuzz::must(strpbrk(limit.severity, ", \t") == nullptr, "a severity is one token", limit.severity);
}

void check_entry(const alarm_entry& entry)
{
    fuzz::must(entry.limit_count >= 0 && entry.limit_count <= max_alarm_limits, "an entry has 0 to 8 limits");
    for (int32_t at = 0; at < entry.limit_count; ++at) {
        check_limit(entry.limits[at], at, at + 1 == entry.limit_count);
    }
    print_alarm_bucket(&entry);
}

void check_table(loaded& config)
{
    const int32_t named = config.named();
    fuzz::must(named >= 0 && named <= max_named_entries, "the result counts the entries");
    const alarm_entry* entries = config.entries.get();
    fuzz::must(std::is_sorted(entries, entries + named,
                              [](const alarm_entry& one, const alarm_entry& other) {
                                  return static_cast<int32_t>(one.opcode) <
                                         static_cast<int32_t>(other.opcode);
                              }),
               "the entries are in the order of their opcodes");
    for (int32_t at = 0; at < default_entry_index; ++at) {
        fuzz::must(at < named || entries[at].opcode == unused_opcode, "what is used is counted");
    }
    check_entry(entries[default_entry_index]);
    for (int32_t at = 0; at < named; ++at) {
        check_entry(entries[at]);
        const auto opcode = static_cast<int32_t>(entries[at].opcode);
        const alarm_entry* found = find_in_opcode_table(config.table(), config.result, opcode);
        fuzz::must(found != nullptr && static_cast<int32_t>(found->opcode) == opcode, "an entry is found");
    }
}

std::string text_of_limit(const alarm_limit& limit)
{
    char text[160];
    const char* const level = (limit.flags & alarm_full_stack) != 0  ? "*"
                              : (limit.flags & alarm_log_flist) != 0 ? "+"
                              : (limit.flags & alarm_raised) != 0    ? "-"
                                                                     : "";
    snprintf(text, sizeof(text), " %ld.%09ld,%s%d%s%s,%s", limit.threshold_tv / tv_per_s,
             limit.threshold_tv % tv_per_s, level, limit.max_flist_bytes,
             (limit.flags & alarm_recurring) != 0 ? "r" : "", (limit.flags & alarm_tagged) != 0 ? "x" : "",
             limit.severity);
    return text;
}

std::string text_of_entry(const std::string& name, const alarm_entry& entry)
{
    std::string line = name;
    for (int32_t at = 0; at < entry.limit_count; ++at) {
        line += text_of_limit(entry.limits[at]);
    }
    return line + "\n";
}

std::string text_of_table(const loaded& config)
{
    std::string text;
    for (const alarm_entry* entry = config.entries.get(); entry < config.entries.get() + config.named();
         ++entry) {
        text += text_of_entry(std::to_string(static_cast<int32_t>(entry->opcode)), *entry);
    }
    const alarm_entry& fallback = config.entries[default_entry_index];
    return fallback.opcode != unused_opcode ? text + text_of_entry("*", fallback) : text;
}

loaded load(std::string_view file)
{
    loaded config;
    config.result = read_alarm_buckets(fuzz::file_of(file).c_str(), nullptr, &config.table());
    if (config.result >= 0) {
        check_table(config);
    }
    return config;
}

void check_written_again(const loaded& config)
{
    const std::string text = text_of_table(config);
    fuzz::must(text_of_table(load(text)) == text, "what was taken is taken again alike", text);
}

// A text is the default entry's line of a file without its name.
void check_text(const std::string& text)
{
    loaded config;
    config.result = read_alarm_buckets(nullptr, text.c_str(), &config.table());
    const bool same_as_line = text.find('\n') == std::string::npos && text.size() + 2 <= longest_line;
    if (text.empty() || !same_as_line) {
        fuzz::must(!text.empty() || config.result == -1, "nothing is no configuration");
        return;
    }
    const loaded line = load("* " + text + "\n");
    fuzz::must(line.result == config.result &&
                   (line.result < 0 || text_of_table(line) == text_of_table(config)),
               "a text is as good as a line", text);
}

void check_descriptions(const uint8_t* data, size_t size)
{
    for (size_t at = 0; at + 1 < size && at < 8; ++at) {
        const auto room = static_cast<int32_t>(data[at] % 80);
        std::string out(static_cast<size_t>(room) + 1, '!');
        get_alarm_flags_descr(data[at + 1], room, out.data());
        fuzz::must(out.back() == '!', "a description keeps within its room");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    get_opnum("op_read"); // the platform reads its names once
    const fuzz::nothing_left_behind watch;
    const std::string_view text = fuzz::text_of(data, size);
    const loaded config = load(text);
    if (config.result >= 0) {
        check_written_again(config);
    } else {
        check_text(std::string(text.substr(0, text.find('\0'))));
    }
    check_descriptions(data, size);
    return 0;
}
