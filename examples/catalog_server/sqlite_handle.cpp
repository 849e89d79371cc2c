#include "sqlite_handle.h"

namespace catalog {
namespace {

constexpr int lock_wait_ms = 10'000;

// A read that ends early must not keep its snapshot: reset as soon as a statement is through.
void finish(sqlite3_stmt* statement)
{
    sqlite3_reset(statement);
}

} // namespace

sqlite_database open_database(const std::string& path)
{
    sqlite3* handle = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    const int result = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
    sqlite_database database{handle};
    if (result != SQLITE_OK)
        throw store_error("cannot open the database " + path + ": " + sqlite3_errstr(result));
    sqlite3_busy_timeout(handle, lock_wait_ms);
    execute(handle, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA foreign_keys=ON");
    return database;
}

void execute(sqlite3* database, const char* sql)
{
    if (sqlite3_exec(database, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        throw store_error(std::string(sqlite3_errmsg(database)) + " in: " + sql);
}

sqlite_statement::sqlite_statement(sqlite3* database, const char* sql)
{
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v3(database, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) != SQLITE_OK)
        throw store_error(std::string(sqlite3_errmsg(database)) + " in: " + sql);
    handle_.reset(statement);
}

bool sqlite_statement::next_row()
{
    const int result = sqlite3_step(handle_.get());
    if (result == SQLITE_ROW)
        return true;
    const std::string message = result == SQLITE_DONE ? "" : sqlite3_errmsg(sqlite3_db_handle(handle_.get()));
    finish(handle_.get());
    if (result != SQLITE_DONE)
        throw store_error(message);
    return false;
}

std::string sqlite_statement::text(int column) const
{
    const unsigned char* bytes = sqlite3_column_text(handle_.get(), column);
    return bytes ? reinterpret_cast<const char*>(bytes) : "";
}

void sqlite_statement::bind(int position, int64_t value)
{
    check(sqlite3_bind_int64(handle_.get(), position, value));
}

void sqlite_statement::bind(int position, const std::string& value)
{
    check(sqlite3_bind_text(handle_.get(), position, value.data(), static_cast<int>(value.size()),
                            SQLITE_TRANSIENT));
}

void sqlite_statement::check(int result) const
{
    if (result != SQLITE_OK)
        throw store_error(sqlite3_errmsg(sqlite3_db_handle(handle_.get())));
}

} // namespace catalog
