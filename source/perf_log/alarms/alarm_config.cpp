#include "perf_log/alarms/alarm_config.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host_access/opcode_names.h"
#include "perf_log/buckets/config_lines.h"
#include "util/diagnostics.h"
#include "util/time_value.h"

using namespace ostrum;

namespace {

constexpr int32_t load_failed = -1;
constexpr size_t line_bytes = 1024;           // the longest line with its terminator
constexpr int32_t longest_text = 1021;        // so that "* " fits in front of it
constexpr int32_t stated_longest_text = 1023; // kept: more than is taken

enum class line_outcome : int32_t { taken, stop, failed };

struct loading {
    const char* path; // for messages; "" for a text
    alarm_table& table;
    int32_t line_number = 0;
    int32_t named = 0;
};

bool is_empty(const char* text)
{
    return text == nullptr || *text == '\0';
}

bool read_limits(const loading& load, line_fields& fields, alarm_entry& entry)
{
    while (const char* field = fields.next()) {
        if (entry.limit_count == max_alarm_limits) {
            err_print("read_alarm_buckets : too many limits in config file at line[%d] for opcode[%d]  (max "
                      "is %d).\n",
                      load.line_number, static_cast<int32_t>(entry.opcode), max_alarm_limits);
            return false;
        }
        if (parse_alarm_definition(field, &entry.limits[entry.limit_count], entry.limit_count) != 0) {
            err_print("read_alarm_buckets : bad alarm limit[%s]\n", field);
            return false;
        }
        ++entry.limit_count;
    }
    return true;
}

bool recurs_only_at_the_end(const loading& load, const alarm_entry& entry)
{
    for (int32_t i = 0; i + 1 < entry.limit_count; ++i) {
        if ((entry.limits[i].flags & alarm_recurring) != 0) {
            err_print("read_alarm_buckets : recurring flag only allowed on last bucket - error "
                      "line_number[%d]\n",
                      load.line_number);
            return false;
        }
    }
    return true;
}

line_outcome read_line(loading& load, char* line)
{
    if (is_skipped_line(line)) {
        return line_outcome::taken;
    }
    line_fields fields(line);
    const char* name = fields.first();
    const opcode_field resolved = resolve_opcode_field(name);
    if (resolved.kind == opcode_kind::bad) {
        err_print("read_alarm_buckets : ERROR - bad opcode[%s] at line number[%d]\n", name, load.line_number);
        return line_outcome::failed;
    }
    alarm_entry* entry = add_entry(load.table, resolved, load.named);
    if (entry == nullptr) {
        err_print("read_alarm_buckets : too many alarms in file[%s] (max is %d)\n", load.path,
                  max_named_entries + 1); // kept: one more than are taken
        return line_outcome::stop;
    }
    const bool good = read_limits(load, fields, *entry) && recurs_only_at_the_end(load, *entry);
    return good ? line_outcome::taken : line_outcome::failed;
}

bool read_file(loading& load)
{
    config_lines lines;
    if (!lines.open(load.path)) {
        err_print("read_alarm_buckets : ERROR - Failed opening opcode alarm file[%s] - errno[%d](%s)\n",
                  load.path, errno, strerror(errno));
        return false;
    }
    char line[line_bytes - 1]; // a file's lines are one shorter than the line that a text makes
    line_outcome outcome = line_outcome::taken;
    while (outcome == line_outcome::taken && lines.next(line, sizeof(line))) {
        load.line_number = lines.line_number();
        outcome = read_line(load, line);
    }
    if (outcome == line_outcome::taken && lines.error() != 0) { // half a table would miss alarms
        err_print("read_alarm_buckets : ERROR - Failed reading opcode alarm file[%s] - errno[%d](%s)\n",
                  load.path, lines.error(), strerror(lines.error()));
        return false;
    }
    return outcome != line_outcome::failed;
}

bool read_text(loading& load, const char* text)
{
    const size_t length = strlen(text);
    if (length > longest_text) {
        err_print("read_alarm_buckets : ERROR string too long - %d chars (max allowed is %d)\n",
                  static_cast<int>(length), stated_longest_text);
        return false;
    }
    char line[line_bytes];
    snprintf(line, sizeof(line), "* %s", text);
    load.line_number = 1;
    return read_line(load, line) != line_outcome::failed;
}

void list_alarms(const loading& load, int32_t count)
{
    debug_print("read_alarm_buckets : loaded alarm config file '%s' with %d opcodes:\n", load.path, count);
    for_each_entry(load.table, load.named, print_alarm_bucket);
}

bool one_source(const char* path, const char* text)
{
    if (!is_empty(path) && !is_empty(text)) {
        err_print("read_alarm_buckets : cannot pass file[%#x](%s) and string[%#x](%s)\n",
                  low_address_bits(path), path, low_address_bits(text), text);
        return false;
    }
    if (is_empty(path) && is_empty(text)) {
        err_print("read_alarm_buckets : no file path or string provided\n");
        return false;
    }
    return true;
}

} // namespace

int32_t read_alarm_buckets(const char* path, const char* text, alarm_table* table)
{
    if (table == nullptr || !one_source(path, text)) {
        return load_failed;
    }
    clear_opcode_table(*table);
    const bool from_file = !is_empty(path);
    loading load{.path = from_file ? path : "", .table = *table};
    if (!(from_file ? read_file(load) : read_text(load, text))) {
        return load_failed;
    }
    const int32_t count = finish_opcode_table(*table, load.named);
    if (debug_on(debug_general)) {
        list_alarms(load, count);
    }
    return count;
}

void print_alarm_bucket(const alarm_entry* entry)
{
    if (entry == nullptr || !debug_on(debug_general)) {
        return;
    }
    const auto opcode = static_cast<int32_t>(entry->opcode);
    debug_print("print_alarm_bucket : opcode %d (%s):\n", opcode,
                opcode == 0 ? "default" : get_opname(opcode, "*"));
    for (int32_t i = 0; i < entry->limit_count; ++i) {
        const alarm_limit& limit = entry->limits[i];
        char flags[128];
        get_alarm_flags_descr(limit.flags, sizeof(flags), flags);
        debug_print("print_alarm_bucket :   bucket %2d = %d.%09d (%s) %s (max flist size %d bytes)\n",
                    limit.index, static_cast<int32_t>(limit.threshold_tv / tv_per_s),
                    static_cast<int32_t>(limit.threshold_tv % tv_per_s),
                    limit.flags != 0 ? flags : "no alarm", limit.severity, limit.max_flist_bytes);
    }
}
