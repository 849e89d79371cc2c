#ifndef OSTRUM_TOOL_DATA_KEY_COLUMNS_H
#define OSTRUM_TOOL_DATA_KEY_COLUMNS_H
// The columns that show the keys of records, for all tables that do.
#include "data/record_columns.h"
#include "output/value_text.h"
#include "readers/data_file.h"

namespace ostrum_tool {

namespace counter_column {
using shown = record_column<operation_counter>;
using counter = operation_counter;
inline constexpr shown operation{"", "operation", cell_kind::text,
                                 [](const counter& of) { return cell(operation_text(of.opname, of.opcode)); },
                                 counter_field::operation};
inline constexpr shown name{"name", "", cell_kind::text, [](const counter& of) { return cell(of.opname); },
                            counter_field::operation};
inline constexpr shown opcode{"opcode", "", cell_kind::number,
                              [](const counter& of) { return cell(int64_t{of.opcode}); },
                              counter_field::operation};
inline constexpr shown flags{"flags", "flags", cell_kind::number,
                             [](const counter& of) { return cell(uint64_t{of.opflags}); },
                             counter_field::flags};
inline constexpr shown program{"program", "program", cell_kind::text,
                               [](const counter& of) { return cell(of.program); }, counter_field::program};
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
inline constexpr shown operation{"", "operation", cell_kind::text,
                                 [](const counter& of) { return cell(operation_text(of.opname, of.opcode)); },
                                 error_field::operation};
inline constexpr shown name{"name", "", cell_kind::text, [](const counter& of) { return cell(of.opname); },
                            error_field::operation};
inline constexpr shown opcode{"opcode", "", cell_kind::number,
                              [](const counter& of) { return cell(int64_t{of.opcode}); },
                              error_field::operation};
inline constexpr shown error{"error", "error", cell_kind::number,
                             [](const counter& of) { return cell(uint64_t{of.errnum}); }, error_field::error};
inline constexpr shown error_class{"class", "class", cell_kind::number,
                                   [](const counter& of) { return cell(uint64_t{of.err_class}); },
                                   error_field::error_class};
inline constexpr shown location{"location", "location", cell_kind::number,
                                [](const counter& of) { return cell(uint64_t{of.location}); },
                                error_field::location};
inline constexpr shown program{"program", "program", cell_kind::text,
                               [](const counter& of) { return cell(of.program); }, error_field::program};
inline constexpr shown db_name{"", "db", cell_kind::number,
                               [](const counter& of) { return cell(db_text(of.dbno)); }, error_field::db};
inline constexpr shown db{"db", "", cell_kind::number, [](const counter& of) { return cell(of.dbno); },
                          error_field::db};
} // namespace error_column

} // namespace ostrum_tool
#endif
