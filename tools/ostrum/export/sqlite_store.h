#ifndef OSTRUM_TOOL_EXPORT_SQLITE_STORE_H
#define OSTRUM_TOOL_EXPORT_SQLITE_STORE_H
// An SQLite database of trace rows, with the views of schema/sqlite.sql.
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

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
    struct insertion {
        statement prepared;
        std::vector<int> places; // of the file and of the columns as visit_columns has them; 0: none
    };

    void execute(const char* sql);
    statement prepare(const char* sql);
    bool step(sqlite3_stmt* prepared); // true: there is a row
    int64_t file_id(const std::string& host, const std::string& path);
    insertion prepare_insertion(const char* table, std::initializer_list<const char*> columns);
    bool insert(const insertion& into, int64_t file, const trace_row& row); // false: it was there
    [[noreturn]] void fail();

    std::string path_;
    std::unique_ptr<sqlite3, closer> database_;
    insertion add_row_, add_path_, add_period_;
};

} // namespace ostrum_tool
#endif
