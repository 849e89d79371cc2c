#ifndef CATALOG_SQLITE_HANDLE_H
#define CATALOG_SQLITE_HANDLE_H
// Owners of SQLite's handles. Failures are store_error, with SQLite's own words.
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include <sqlite3.h>

namespace catalog {

struct store_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct sqlite_closer {
    void operator()(sqlite3* database) const noexcept { sqlite3_close_v2(database); }
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};
using sqlite_database = std::unique_ptr<sqlite3, sqlite_closer>;

// One connection; of one thread.
sqlite_database open_database(const std::string& path);
void execute(sqlite3* database, const char* sql);

// A prepared statement, used over and over: bind, step to the end, reset.
class sqlite_statement {
public:
    sqlite_statement(sqlite3* database, const char* sql);

    // Binds the parameters in order and forgets an earlier run.
    template <class... Values>
    sqlite_statement& with(const Values&... values)
    {
        sqlite3_reset(handle_.get());
        int position = 0;
        (bind(++position, values), ...);
        return *this;
    }
    bool next_row(); // false: no further row
    void run()
    {
        while (next_row()) {
        }
    }

    [[nodiscard]] int64_t number(int column) const { return sqlite3_column_int64(handle_.get(), column); }
    [[nodiscard]] std::string text(int column) const;

private:
    void bind(int position, int64_t value);
    void bind(int position, const std::string& value);
    void check(int result) const;

    std::unique_ptr<sqlite3_stmt, sqlite_closer> handle_;
};

} // namespace catalog
#endif
