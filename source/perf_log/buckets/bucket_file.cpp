#include "perf_log/buckets/bucket_file.h"

#include <cerrno>
#include <cstring>

#include "host_access/opcode_names.h"
#include "perf_log/buckets/config_lines.h"
#include "util/diagnostics.h"
#include "util/time_value.h"

namespace ostrum {

namespace {

constexpr size_t line_bytes = 511; // the longest line with its terminator

constinit opcode_buckets g_perf_buckets[opcode_table_size]{};
constinit int32_t g_perf_nbuckets = -1;

struct loading {
    const char* path;
    config_lines lines;
    int32_t named = 0;
};

// The entry that the line fills; null, after one diagnostic line, when the line is to be skipped.
opcode_buckets* entry_for(loading& load, const char* field)
{
    const opcode_field resolved = resolve_opcode_field(field);
    if (resolved.kind == opcode_kind::bad) {
        err_print("read_opcode_buckets : bad opcode[%s] at line[%d]\n", field, load.lines.line_number());
        return nullptr;
    }
    if (resolved.kind == opcode_kind::named && load.named == max_named_entries) {
        err_print("read_opcode_buckets : too many opcodes in bucket file[%s] (max is %d)\n", load.path,
                  max_named_entries + 1); // kept: one more than are taken
        return nullptr;
    }
    const int32_t index = resolved.kind == opcode_kind::named ? load.named++ : default_entry_index;
    opcode_buckets& entry = g_perf_buckets[index];
    entry = {};
    entry.opcode = static_cast<uint32_t>(resolved.opcode);
    return &entry;
}

// False, after one diagnostic line, at a bad threshold. Those beyond the table's room are ignored.
bool read_thresholds(const loading& load, line_fields& fields, opcode_buckets& entry)
{
    while (const char* field = fields.next()) {
        if (entry.threshold_count == max_thresholds) {
            err_print("read_opcode_buckets : too many thresholds in bucket file. [%d] for opcode[%d] (max is "
                      "%d)\n",
                      max_thresholds + 1, static_cast<int32_t>(entry.opcode), max_thresholds);
            return true;
        }
        // The sign by itself: the text of a value between -1 and 0 would lose it.
        const int64_t threshold_tv = ostrum_string_to_tv(field);
        if (threshold_tv < 0 || field[0] == '-') {
            err_print("read_opcode_buckets : bad threshold '%s' (%d) for opcode '%d' in file '%s'.\n", field,
                      entry.threshold_count, static_cast<int32_t>(entry.opcode), load.path);
            return false;
        }
        entry.thresholds[entry.threshold_count++] = threshold_tv;
    }
    return true;
}

bool read_line(loading& load, char* line)
{
    if (line[0] == '#' || line[0] == '\0') {
        return true;
    }
    line_fields fields(line);
    opcode_buckets* entry = entry_for(load, fields.first());
    return entry == nullptr || read_thresholds(load, fields, *entry);
}

bool read_all_lines(loading& load)
{
    char line[line_bytes];
    while (load.lines.next(line, sizeof(line))) {
        if (!read_line(load, line)) {
            return false;
        }
    }
    return true;
}

void list_buckets(const loading& load)
{
    debug_print("read_opcode_buckets : loaded opcode buckets file '%s' with %d opcodes:\n", load.path,
                g_perf_nbuckets);
    for (int32_t i = 0; i < load.named; ++i) {
        print_opcode_bucket(&g_perf_buckets[i]);
    }
    if (has_default_entry(g_perf_buckets)) {
        print_opcode_bucket(&g_perf_buckets[default_entry_index]);
    }
}

} // namespace

const opcode_buckets* find_opcode_buckets(int32_t opcode)
{
    return find_in_opcode_table(g_perf_buckets, g_perf_nbuckets, opcode);
}

int32_t opcode_bucket_count()
{
    return g_perf_nbuckets;
}

} // namespace ostrum

using namespace ostrum;

int32_t read_opcode_buckets(const char* path)
{
    clear_opcode_table(g_perf_buckets);
    g_perf_nbuckets = 0;
    loading load{.path = path != nullptr ? path : "", .lines = {}};
    if (!load.lines.open(load.path)) {
        err_print("read_opcode_buckets : ERROR - Failed opening opcode bucket file '%s' - %d (%s)\n",
                  load.path, errno, strerror(errno));
        return 0;
    }
    if (!read_all_lines(load)) {
        return -1;
    }
    if (load.lines.error() != 0) { // half a table would classify wrongly
        err_print("read_opcode_buckets : ERROR - Failed reading opcode bucket file '%s' - %d (%s)\n",
                  load.path, load.lines.error(), strerror(load.lines.error()));
        return 0;
    }
    sort_named_entries(g_perf_buckets, load.named);
    g_perf_nbuckets = load.named + (has_default_entry(g_perf_buckets) ? 1 : 0);
    if (debug_on(debug_general)) {
        list_buckets(load);
    }
    return g_perf_nbuckets;
}

void print_opcode_bucket(const opcode_buckets* entry)
{
    if (entry == nullptr || !debug_on(debug_general)) {
        return;
    }
    const auto opcode = static_cast<int32_t>(entry->opcode);
    debug_print("print_opcode_bucket : opcode %d (%s):\n", opcode, get_opname(opcode, "*"));
    for (int32_t i = 0; i < entry->threshold_count; ++i) {
        debug_print("print_opcode_bucket :   bucket %2d = %d.%09d\n", i,
                    static_cast<int32_t>(entry->thresholds[i] / tv_per_s),
                    static_cast<int32_t>(entry->thresholds[i] % tv_per_s));
    }
}
