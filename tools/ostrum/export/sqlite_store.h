#ifndef OSTRUM_TOOL_EXPORT_SQLITE_STORE_H
#define OSTRUM_TOOL_EXPORT_SQLITE_STORE_H
// An SQLite database of trace rows, with the views of schema/sqlite.sql.
#include <memory>
#include <string>

#include "export/record_rows.h"

struct sqlite3;
struct sqlite3_stmt;

namespace ostrum_tool {

struct loaded_file {
    int64_t added_rows = 0; // that were not there before
    damage_list damages;
};

class sqlite_store {
public:
    // Made when it is not there. Throws input_error, as all that follows does.
    explicit sqlite_store(const std::string& path);
    ~sqlite_store();
    sqlite_store(const sqlite_store&) = delete;
    sqlite_store& operator=(const sqlite_store&) = delete;

    // Loads the rows of a file that are not there yet, all or none. A file that was loaded under another name
    // and renamed is the same file; another file under a name that was loaded is refused.
    loaded_file load(const std::string& host, const std::string& path);

private:
    struct closer {
        void operator()(sqlite3* database) const;
        void operator()(sqlite3_stmt* statement) const;
    };
    using statement = std::unique_ptr<sqlite3_stmt, closer>;

    void execute(const char* sql);
    statement prepare(const char* sql);
    bool step(sqlite3_stmt* prepared); // true: there is a row
    int64_t file_id(const std::string& host, const std::string& path);
    bool add_row(int64_t file, const trace_row& row); // false: it was there
    void add_path(const trace_row& row);
    void add_period(int64_t file, const trace_row& row);
    [[noreturn]] void fail();

    std::string path_;
    std::unique_ptr<sqlite3, closer> database_;
    statement add_row_, add_path_, add_period_;
};

} // namespace ostrum_tool
#endif
