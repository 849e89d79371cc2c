#ifndef OSTRUM_PERF_LOG_BUCKETS_OPCODE_TABLE_H
#define OSTRUM_PERF_LOG_BUCKETS_OPCODE_TABLE_H
// What every per-opcode configuration table shares: up to 999 entries sorted by opcode and, behind
// them, the default entry "*"; the search; and the fields of a configuration line. An entry type has a
// member `uint32_t opcode` and is a plain record.
#include <algorithm>
#include <cstdint>

namespace ostrum {

inline constexpr uint32_t unused_opcode = 0xFFFFFFFFU;
inline constexpr int32_t opcode_table_size = 1001; // the last entry is the default "*"
inline constexpr int32_t default_entry_index = 1000;

// One less than there is room for: the 1000th is reported and skipped (kept on purpose).
inline constexpr int32_t max_named_entries = 999;

template <typename Entry>
void clear_opcode_table(Entry (&table)[opcode_table_size])
{
    for (Entry& entry : table) {
        entry = Entry{};
        entry.opcode = unused_opcode;
    }
}

template <typename Entry>
bool has_default_entry(const Entry (&table)[opcode_table_size])
{
    return table[default_entry_index].opcode != unused_opcode;
}

// Signed, as opcodes are everywhere: those of virtual operations sort first.
template <typename Entry>
bool opcode_below(const Entry& entry, int32_t opcode)
{
    return static_cast<int32_t>(entry.opcode) < opcode;
}

// What the first field of a line stands for: an opcode by number or name, or "*".
enum class opcode_kind : int32_t { bad, named, any };
struct opcode_field {
    opcode_kind kind;
    int32_t opcode; // 0 unless named
};
opcode_field resolve_opcode_field(const char* field);

// The entry that a line with that first field fills, cleared; null when there is no room for another.
template <typename Entry>
Entry* add_entry(Entry (&table)[opcode_table_size], const opcode_field& field, int32_t& named)
{
    const bool is_named = field.kind == opcode_kind::named;
    if (is_named && named == max_named_entries) {
        return nullptr;
    }
    Entry& entry = table[is_named ? named++ : default_entry_index];
    entry = {};
    entry.opcode = static_cast<uint32_t>(field.opcode);
    return &entry;
}

// By opcode; equal ones stay in the order of the file. In place, because the standard stable sort takes
// memory of its own; in a file that is sorted already nothing moves.
template <typename Entry>
void sort_named_entries(Entry (&table)[opcode_table_size], int32_t named)
{
    for (Entry* next = table; next < table + named; ++next) {
        Entry* place = std::upper_bound(table, next, *next, [](const Entry& added, const Entry& sorted) {
            return opcode_below(added, static_cast<int32_t>(sorted.opcode));
        });
        std::rotate(place, next, next + 1);
    }
}

// Sorts the named entries. Returns their number, the default entry counted in.
template <typename Entry>
int32_t finish_opcode_table(Entry (&table)[opcode_table_size], int32_t named)
{
    sort_named_entries(table, named);
    return named + (has_default_entry(table) ? 1 : 0);
}

// The named ones in their order, then the default entry.
template <typename Entry>
void for_each_entry(const Entry (&table)[opcode_table_size], int32_t named, void (*visit)(const Entry*))
{
    std::for_each(table, table + named, [visit](const Entry& entry) { visit(&entry); });
    if (has_default_entry(table)) {
        visit(&table[default_entry_index]);
    }
}

// The (first) entry of the opcode among `count` entries, the default entry counted in; else the default
// entry; else null.
template <typename Entry>
const Entry* find_in_opcode_table(const Entry (&table)[opcode_table_size], int32_t count, int32_t opcode)
{
    if (count < 1) {
        return nullptr;
    }
    const Entry* fallback = has_default_entry(table) ? table + default_entry_index : nullptr;
    const Entry* end = table + count - (fallback != nullptr ? 1 : 0);
    const Entry* found = std::lower_bound(static_cast<const Entry*>(table), end, opcode, opcode_below<Entry>);
    return found != end && static_cast<int32_t>(found->opcode) == opcode ? found : fallback;
}

bool is_skipped_line(const char* line); // empty, or a comment

// False: not a time, or below 0.
bool parse_threshold(const char* text, int64_t& threshold_tv);

// Cuts the fields of a configuration line out of it, in place. The first field begins in the first
// column: it is empty where the line begins with a separator. Further fields are separated by runs of
// tabs and blanks.
class line_fields {
public:
    explicit line_fields(char* line) : rest_(line) {}
    char* first();
    char* next(); // null at the end of the line

private:
    char* cut_field();

    char* rest_;
};

} // namespace ostrum
#endif
