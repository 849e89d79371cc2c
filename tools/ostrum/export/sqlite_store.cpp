#include "export/sqlite_store.h"

#include <sqlite3.h>

#include "export/stored_hash.h"
#include "sqlite_schema.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr int busy_wait_ms = 10'000;
constexpr size_t head_bytes = 1'024; // more than the first block's first records

void bind(sqlite3_stmt* prepared, int place, const std::string& text)
{
    sqlite3_bind_text(prepared, place, text.c_str(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

void bind_all(sqlite3_stmt* prepared, std::initializer_list<int64_t> numbers)
{
    int place = 0;
    for (const int64_t number : numbers) {
        sqlite3_bind_int64(prepared, ++place, number);
    }
}

int64_t stored(uint64_t number)
{
    return static_cast<int64_t>(number);
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
    add_row_ = prepare("insert or ignore into trace_rows values"
                       " (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    add_path_ = prepare(
        "insert or ignore into trace_paths (path_key, parent_key, level, opcode, flags, source_line, db,"
        " name, source_file, program, obj_type) values (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    add_period_ = prepare("insert or ignore into trace_periods values (?, ?, ?, ?, ?, ?)");
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
                add_period(file, row);
            } else {
                add_path(row);
                loaded.added_rows += add_row(file, row) ? 1 : 0;
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
    bind(by_name.get(), 1, host);
    bind(by_name.get(), 2, name);
    if (step(by_name.get())) {
        const auto known_bytes = static_cast<size_t>(sqlite3_column_int64(by_name.get(), 1));
        if (hash_of(head_of(path, known_bytes)) != sqlite3_column_int64(by_name.get(), 2)) {
            throw input_error(path + ": another file was loaded under this name before; rename one of them");
        }
        return sqlite3_column_int64(by_name.get(), 0);
    }
    const statement by_head = prepare(
        "select id from trace_files where host = ? and head_bytes = ? and head_hash = ? and head_bytes > 0");
    bind(by_head.get(), 1, host);
    sqlite3_bind_int64(by_head.get(), 2, stored(head.size()));
    sqlite3_bind_int64(by_head.get(), 3, hash_of(head));
    if (step(by_head.get())) {
        const int64_t id = sqlite3_column_int64(by_head.get(), 0);
        const statement rename = prepare("update trace_files set file = ? where id = ?");
        bind(rename.get(), 1, name);
        sqlite3_bind_int64(rename.get(), 2, id);
        step(rename.get());
        return id;
    }
    const statement add =
        prepare("insert into trace_files (host, file, head_bytes, head_hash) values (?, ?, ?, ?)");
    bind(add.get(), 1, host);
    bind(add.get(), 2, name);
    sqlite3_bind_int64(add.get(), 3, stored(head.size()));
    sqlite3_bind_int64(add.get(), 4, hash_of(head));
    step(add.get());
    return sqlite3_last_insert_rowid(database_.get());
}

bool sqlite_store::add_row(int64_t file, const trace_row& row)
{
    sqlite3_stmt* const to = add_row_.get();
    const figures& sums = row.sums;
    bind_all(to, {file,
                  stored(row.offset),
                  stored(row.period_offset),
                  0,
                  row.bucket,
                  row.path_key,
                  row.pid,
                  stored(row.tid),
                  row.period_from_tv,
                  sums.total_calls,
                  sums.total_errors,
                  sums.total_recs,
                  sums.total_tv,
                  sums.min_tv,
                  sums.max_tv,
                  sums.bs_tv,
                  sums.be_tv,
                  sums.cm_cache_calls,
                  sums.cm_cache_tv,
                  sums.user_cpu_tv,
                  sums.sys_cpu_tv});
    if (row.parent_offset) {
        sqlite3_bind_int64(to, 4, stored(*row.parent_offset));
    } else {
        sqlite3_bind_null(to, 4);
    }
    step(to);
    sqlite3_reset(to);
    return sqlite3_changes(database_.get()) > 0;
}

void sqlite_store::add_path(const trace_row& row)
{
    sqlite3_stmt* const to = add_path_.get();
    bind_all(to, {row.path_key, row.parent_key, row.level, row.opcode, row.flags, row.lineno, row.db_num});
    int place = 7;
    for (const std::string* text : {&row.name, &row.fname, &row.program, &row.obj_type}) {
        bind(to, ++place, *text);
    }
    step(to);
    sqlite3_reset(to);
}

void sqlite_store::add_period(int64_t file, const trace_row& row)
{
    sqlite3_stmt* const to = add_period_.get();
    bind_all(to, {file, stored(row.offset), row.pid, stored(row.tid), row.period_from_tv,
                  row.flushed_tv.value_or(0)});
    step(to);
    sqlite3_reset(to);
}

} // namespace ostrum_tool
