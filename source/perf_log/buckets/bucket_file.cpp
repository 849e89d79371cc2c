#include "perf_log/buckets/bucket_file.h"

#include <cerrno>
#include <cstring>

#include "host_access/opcode_names.h"
#include "perf_log/buckets/config_lines.h"
#include "util/diagnostics.h"
#include "util/text.h"
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
    opcode_buckets* entry = add_entry(g_perf_buckets, resolved, load.named);
    if (entry == nullptr) {
        err_print("read_opcode_buckets : too many opcodes in bucket file[%s] (max is %d)\n", load.path,
                  max_named_entries + 1); // kept: one more than are taken
    }
    return entry;
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
        if (!parse_threshold(field, entry.thresholds[entry.threshold_count])) {
            err_print("read_opcode_buckets : bad threshold '%s' (%d) for opcode '%d' in file '%s'.\n", field,
                      entry.threshold_count, static_cast<int32_t>(entry.opcode), load.path);
            return false;
        }
        ++entry.threshold_count;
    }
    return true;
}

bool read_line(loading& load, char* line)
{
    if (is_skipped_line(line)) {
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
    for_each_entry(g_perf_buckets, load.named, print_opcode_bucket);
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
    loading load{.path = text_or_empty(path), .lines = {}};
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
    g_perf_nbuckets = finish_opcode_table(g_perf_buckets, load.named);
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
