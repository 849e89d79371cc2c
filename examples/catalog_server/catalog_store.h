#ifndef CATALOG_STORE_H
#define CATALOG_STORE_H
// The catalogue in SQLite: packages, the further names they provide, and who requires whom. One store is
// one connection and belongs to one thread. Single steps only; what belongs together is for the
// operations and their transactions. Every call throws store_error when the database fails.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dpkg_status.h"
#include "sqlite_handle.h"

namespace catalog {

struct stored_package {
    int64_t id = 0;
    package_record record; // without provides and requirements
};

struct stored_dependency {
    std::string kind;
    std::string name; // of the package that meets it
};

enum class search_by { name, section, requires_package };

class catalog_store {
public:
    // Opens the database and makes its tables where there are none.
    explicit catalog_store(const std::string& path);

    int64_t insert_package(const package_record& record);
    void insert_provided_name(int64_t package_id, const std::string& name);
    void insert_dependency(int64_t package_id, int64_t target_id, const std::string& kind);
    void update_package(int64_t id, const std::string& priority, const std::string& summary);
    void delete_package(int64_t id);

    std::optional<int64_t> find_id(const std::string& name);
    std::optional<int64_t> find_provider(const std::string& name); // by a provided name; the oldest one
    std::optional<stored_package> load_package(int64_t id);
    std::vector<stored_dependency> load_dependencies(int64_t id);
    // Packages outside `id` that depend on it and so keep it from being deleted.
    int64_t count_dependents(int64_t id);
    // Ids in order of the names; '*' in the pattern stands for any text.
    std::vector<int64_t> search(search_by attribute, const std::string& pattern, int64_t limit);

    void execute(const char* sql) { catalog::execute(database_.get(), sql); }

private:
    std::optional<int64_t> single_id(sqlite_statement& statement, const std::string& name);

    sqlite_database database_; // first: the statements go before it
    sqlite_statement insert_package_, insert_provided_name_, insert_dependency_, update_package_;
    sqlite_statement delete_package_, find_id_, find_provider_, load_package_, load_dependencies_;
    sqlite_statement count_dependents_, search_name_, search_section_, search_requires_;
};

// A transaction, or a savepoint inside one, that is undone unless it was committed.
class store_transaction {
public:
    enum class kind { read, write, savepoint };
    store_transaction(catalog_store& store, kind of);
    ~store_transaction();
    store_transaction(const store_transaction&) = delete;
    store_transaction& operator=(const store_transaction&) = delete;
    void commit();

private:
    catalog_store& store_;
    kind kind_;
    bool open_ = true;
};

} // namespace catalog
#endif
