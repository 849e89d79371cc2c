#include "export/sqlite_store.h"

#include <optional>
#include <type_traits>

#include <fmt/format.h>
#include <sqlite3.h>

#include "export/stored_hash.h"
#include "sqlite_schema.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr int busy_wait_ms = 10'000;
constexpr size_t head_bytes = 1'024; // more than the first block's first records

void bind_value(sqlite3_stmt* prepared, int place, std::string_view text)
{
    sqlite3_bind_text(prepared, place, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

template <typename Number>
requires std::is_arithmetic_v<Number>
void bind_value(sqlite3_stmt* prepared, int place, Number number)
{
    sqlite3_bind_int64(prepared, place, static_cast<int64_t>(number));
}

template <typename Value>
void bind_value(sqlite3_stmt* prepared, int place, const std::optional<Value>& value)
{
    value ? bind_value(prepared, place, *value) : static_cast<void>(sqlite3_bind_null(prepared, place));
}

std::string head_of(const std::string& path, size_t bytes)
{
    const auto source = open_source(path);
    std::string head(bytes, '\0');
    head.resize(read_fully(*source, head));
    return head;
}

int64_t hash_of(std::string_view text)
{
    return static_cast<int64_t>(stored_hash(stored_hash_start, text));
}

} // namespace

void sqlite_store::closer::operator()(sqlite3* database) const
{
    sqlite3_close(database);
}

void sqlite_store::closer::operator()(sqlite3_stmt* statement) const
{
    sqlite3_finalize(statement);
}

sqlite_store::sqlite_store(const std::string& path) : path_(path)
{
    sqlite3* opened = nullptr;
    const int result = sqlite3_open(path.c_str(), &opened);
    database_.reset(opened);
    if (result != SQLITE_OK) {
        fail();
    }
    sqlite3_busy_timeout(opened, busy_wait_ms);
    execute(sqlite_schema);
    add_row_ = prepare_insertion(
        "trace_rows",
        {"file_id",   "file_offset", "period_offset",  "parent_offset",  "bucket",       "path_key",
         "pid",       "tid",         "period_from_ns", "calls",          "errors",       "records",
         "total_ns",  "min_ns",      "max_ns",         "bucket_from_ns", "bucket_to_ns", "cached_calls",
         "cached_ns", "user_cpu_ns", "system_cpu_ns"});
    add_path_ =
        prepare_insertion("trace_paths", {"path_key", "parent_key", "level", "opcode", "name", "flags",
                                          "source_file", "source_line", "program", "obj_type", "db"});
    add_period_ = prepare_insertion("trace_periods",
                                    {"file_id", "file_offset", "pid", "tid", "period_from_ns", "flushed_ns"});
}

sqlite_store::~sqlite_store() = default;

void sqlite_store::fail()
{
    throw input_error(path_ + ": " + sqlite3_errmsg(database_.get()));
}

void sqlite_store::execute(const char* sql)
{
    if (sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail();
    }
}

sqlite_store::statement sqlite_store::prepare(const char* sql)
{
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(database_.get(), sql, -1, &prepared, nullptr) != SQLITE_OK) {
        fail();
    }
    return statement(prepared);
}

sqlite_store::insertion sqlite_store::prepare_insertion(const char* table,
                                                        std::initializer_list<const char*> columns)
{
    const std::string sql = fmt::format("insert or ignore into {} ({}) values (:{})", table,
                                        fmt::join(columns, ", "), fmt::join(columns, ", :"));
    insertion made{prepare(sql.c_str()), {}};
    const auto add_place = [&](const std::string& name, const auto& /*value*/) {
        made.places.push_back(sqlite3_bind_parameter_index(made.prepared.get(), (":" + name).c_str()));
    };
    add_place("file_id", 0);
    visit_columns({}, add_place);
    return made;
}

bool sqlite_store::step(sqlite3_stmt* prepared)
{
    const int result = sqlite3_step(prepared);
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        fail();
    }
    return result == SQLITE_ROW;
}

loaded_file sqlite_store::load(const std::string& host, const std::string& path)
{
    execute("begin immediate");
    try {
        loaded_file loaded;
        const int64_t file = file_id(host, path);
        loaded.damages = read_rows(path, [&](const trace_row& row) {
            if (row.level == period_frame_level) {
                insert(add_period_, file, row);
            } else {
                insert(add_path_, file, row);
                loaded.added_rows += insert(add_row_, file, row) ? 1 : 0;
            }
        });
        execute("commit");
        return loaded;
    } catch (...) {
        sqlite3_exec(database_.get(), "rollback", nullptr, nullptr, nullptr);
        throw;
    }
}

// Rotation gives files new names and their old names to others: the first bytes tell.
int64_t sqlite_store::file_id(const std::string& host, const std::string& path)
{
    const std::string name = row_file_name(path);
    const std::string head = head_of(path, head_bytes);
    const statement by_name =
        prepare("select id, head_bytes, head_hash from trace_files where host = ? and file = ?");
    bind_value(by_name.get(), 1, host);
    bind_value(by_name.get(), 2, name);
    if (step(by_name.get())) {
        const auto known_bytes = static_cast<size_t>(sqlite3_column_int64(by_name.get(), 1));
        if (hash_of(head_of(path, known_bytes)) != sqlite3_column_int64(by_name.get(), 2)) {
            throw input_error(path + ": another file was loaded under this name before; rename one of them");
        }
        return sqlite3_column_int64(by_name.get(), 0);
    }
    const statement by_head = prepare(
        "select id from trace_files where host = ? and head_bytes = ? and head_hash = ? and head_bytes > 0");
    bind_value(by_head.get(), 1, host);
    bind_value(by_head.get(), 2, head.size());
    bind_value(by_head.get(), 3, hash_of(head));
    if (step(by_head.get())) {
        const int64_t id = sqlite3_column_int64(by_head.get(), 0);
        const statement rename = prepare("update trace_files set file = ? where id = ?");
        bind_value(rename.get(), 1, name);
        bind_value(rename.get(), 2, id);
        step(rename.get());
        return id;
    }
    const statement add =
        prepare("insert into trace_files (host, file, head_bytes, head_hash) values (?, ?, ?, ?)");
    bind_value(add.get(), 1, host);
    bind_value(add.get(), 2, name);
    bind_value(add.get(), 3, head.size());
    bind_value(add.get(), 4, hash_of(head));
    step(add.get());
    return sqlite3_last_insert_rowid(database_.get());
}

bool sqlite_store::insert(const insertion& into, int64_t file, const trace_row& row)
{
    sqlite3_stmt* const prepared = into.prepared.get();
    auto place = into.places.begin();
    const auto bind_next = [&](const char* /*name*/, const auto& value) {
        if (const int at = *place++; at != 0) {
            bind_value(prepared, at, value);
        }
    };
    bind_next("file_id", file);
    visit_columns(row, bind_next);
    step(prepared);
    sqlite3_reset(prepared);
    return sqlite3_changes(database_.get()) > 0;
}

} // namespace ostrum_tool
