#ifndef OSTRUM_TOOL_DATA_KEY_COLUMNS_H
#define OSTRUM_TOOL_DATA_KEY_COLUMNS_H
// The columns that show the keys of records, for all tables that do.
#include "data/record_columns.h"
#include "output/value_text.h"
#include "readers/data_file.h"

namespace ostrum_tool {

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

namespace counter_column {
using shown = record_column<operation_counter>;
using counter = operation_counter;
using shared = shared_key_columns<operation_counter, counter_field::operation, counter_field::program>;
inline constexpr shown operation = shared::operation;
inline constexpr shown name = shared::name;
inline constexpr shown opcode = shared::opcode;
inline constexpr shown program = shared::program;
inline constexpr shown flags{"flags", "flags", cell_kind::number,
                             [](const counter& of) { return cell(uint64_t{of.opflags}); },
                             counter_field::flags};
inline constexpr shown source{"", "source", cell_kind::text,
                              [](const counter& of) { return cell(source_text(of.fname, of.lineno)); },
                              counter_field::file | counter_field::line};
inline constexpr shown file{"file", "", cell_kind::text, [](const counter& of) { return cell(of.fname); },
                            counter_field::file};
inline constexpr shown line{"line", "", cell_kind::number,
                            [](const counter& of) { return cell(int64_t{of.lineno}); }, counter_field::line};
inline constexpr shown type{"type", "type", cell_kind::text,
                            [](const counter& of) { return cell(of.obj_type); }, counter_field::type};
inline constexpr shown db_name{"", "db", cell_kind::number,
                               [](const counter& of) { return cell(db_text(of.db_number)); },
                               counter_field::db};
inline constexpr shown db{"db", "", cell_kind::number, [](const counter& of) { return cell(of.db_number); },
                          counter_field::db};
} // namespace counter_column

namespace error_column {
using shown = record_column<error_counter>;
using counter = error_counter;
using shared = shared_key_columns<error_counter, error_field::operation, error_field::program>;
inline constexpr shown operation = shared::operation;
inline constexpr shown name = shared::name;
inline constexpr shown opcode = shared::opcode;
inline constexpr shown program = shared::program;
inline constexpr shown error{"error", "error", cell_kind::number,
                             [](const counter& of) { return cell(uint64_t{of.errnum}); }, error_field::error};
inline constexpr shown error_class{"class", "class", cell_kind::number,
                                   [](const counter& of) { return cell(uint64_t{of.err_class}); },
                                   error_field::error_class};
inline constexpr shown location{"location", "location", cell_kind::number,
                                [](const counter& of) { return cell(uint64_t{of.location}); },
                                error_field::location};
inline constexpr shown db_name{"", "db", cell_kind::number,
                               [](const counter& of) { return cell(db_text(of.dbno)); }, error_field::db};
inline constexpr shown db{"db", "", cell_kind::number, [](const counter& of) { return cell(of.dbno); },
                          error_field::db};
} // namespace error_column

} // namespace ostrum_tool
#endif
