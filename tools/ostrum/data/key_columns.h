#ifndef OSTRUM_TOOL_DATA_KEY_COLUMNS_H
#define OSTRUM_TOOL_DATA_KEY_COLUMNS_H
// What all tables of counters and errors show alike: the columns of the keys, and totals as cells.
#include "data/key_fields.h"
#include "output/record_columns.h"
#include "output/value_text.h"
#include "readers/data_file.h"

namespace ostrum_tool {

// Totals are unsigned in the file; beyond the signed range they are damage and show as the largest number.
inline int64_t signed_value(uint64_t word)
{
    return word > INT64_MAX ? INT64_MAX : static_cast<int64_t>(word);
}

// Of one call; nothing when there were none.
inline cell average_cell(const operation_counter& counter)
{
    const int64_t calls = signed_value(counter.calls);
    return calls == 0 ? cell() : cell(signed_value(counter.total_tv) / calls);
}

// What the keys of both kinds of records begin with.
template <typename Record, field_set Operation, field_set Program>
struct shared_key_columns {
    static constexpr record_column<Record> operation{
        "", "operation", cell_kind::text,
        [](const Record& of) { return cell(operation_text(of.opname, of.opcode)); }, Operation};
    static constexpr record_column<Record> name{"name", "", cell_kind::text,
                                                [](const Record& of) { return cell(of.opname); }, Operation};
    static constexpr record_column<Record> opcode{"opcode", "", cell_kind::number,
                                                  [](const Record& of) { return cell(int64_t{of.opcode}); },
                                                  Operation};
    static constexpr record_column<Record> program{
        "program", "program", cell_kind::text, [](const Record& of) { return cell(of.program); }, Program};
};

struct counter_column
    : shared_key_columns<operation_counter, counter_field::operation, counter_field::program> {
    using shown = record_column<operation_counter>;
    using counter = operation_counter;
    static constexpr shown flags{"flags", "flags", cell_kind::number,
                                 [](const counter& of) { return cell(uint64_t{of.opflags}); },
                                 counter_field::flags};
    static constexpr shown source{"", "source", cell_kind::text,
                                  [](const counter& of) { return cell(source_text(of.fname, of.lineno)); },
                                  counter_field::file | counter_field::line};
    static constexpr shown file{"file", "", cell_kind::text, [](const counter& of) { return cell(of.fname); },
                                counter_field::file};
    static constexpr shown line{"line", "", cell_kind::number,
                                [](const counter& of) { return cell(int64_t{of.lineno}); },
                                counter_field::line};
    static constexpr shown type{"type", "type", cell_kind::text,
                                [](const counter& of) { return cell(of.obj_type); }, counter_field::type};
    static constexpr shown db_name{"", "db", cell_kind::number,
                                   [](const counter& of) { return cell(db_text(of.db_number)); },
                                   counter_field::db};
    static constexpr shown db{"db", "", cell_kind::number,
                              [](const counter& of) { return cell(of.db_number); }, counter_field::db};
};

struct error_column : shared_key_columns<error_counter, error_field::operation, error_field::program> {
    using shown = record_column<error_counter>;
    using counter = error_counter;
    static constexpr shown error{"error", "error", cell_kind::number,
                                 [](const counter& of) { return cell(uint64_t{of.errnum}); },
                                 error_field::error};
    static constexpr shown error_class{"class", "class", cell_kind::number,
                                       [](const counter& of) { return cell(uint64_t{of.err_class}); },
                                       error_field::error_class};
    static constexpr shown location{"location", "location", cell_kind::number,
                                    [](const counter& of) { return cell(uint64_t{of.location}); },
                                    error_field::location};
    static constexpr shown db_name{"", "db", cell_kind::number,
                                   [](const counter& of) { return cell(db_text(of.dbno)); }, error_field::db};
    static constexpr shown db{"db", "", cell_kind::number, [](const counter& of) { return cell(of.dbno); },
                              error_field::db};
};

} // namespace ostrum_tool
#endif
