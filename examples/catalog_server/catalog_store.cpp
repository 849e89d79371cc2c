#include "catalog_store.h"

namespace catalog {
namespace {

constexpr const char* schema = R"(
    CREATE TABLE IF NOT EXISTS package (
        id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE, version TEXT, section TEXT, priority TEXT,
        architecture TEXT, summary TEXT, installed_kib INTEGER);
    CREATE INDEX IF NOT EXISTS package_by_section ON package (section, name);
    CREATE TABLE IF NOT EXISTS provision (
        name TEXT NOT NULL, package_id INTEGER NOT NULL REFERENCES package ON DELETE CASCADE,
        PRIMARY KEY (name, package_id)) WITHOUT ROWID;
    CREATE INDEX IF NOT EXISTS provision_by_package ON provision (package_id);
    CREATE TABLE IF NOT EXISTS dependency (
        package_id INTEGER NOT NULL REFERENCES package ON DELETE CASCADE,
        target_id INTEGER NOT NULL REFERENCES package ON DELETE CASCADE, kind TEXT NOT NULL,
        PRIMARY KEY (package_id, target_id, kind)) WITHOUT ROWID;
    CREATE INDEX IF NOT EXISTS dependency_by_target ON dependency (target_id);
)";

sqlite_database open_with_schema(const std::string& path)
{
    sqlite_database database = open_database(path);
    execute(database.get(), schema);
    return database;
}

} // namespace

catalog_store::catalog_store(const std::string& path)
    : database_(open_with_schema(path)),
      insert_package_(
          database_.get(),
          "INSERT INTO package (name, version, section, priority, architecture, summary, installed_kib)"
          " VALUES (?, ?, ?, ?, ?, ?, ?) RETURNING id"),
      insert_provided_name_(database_.get(),
                            "INSERT OR IGNORE INTO provision (package_id, name) VALUES (?, ?)"),
      insert_dependency_(database_.get(),
                         "INSERT OR IGNORE INTO dependency (package_id, target_id, kind) VALUES (?, ?, ?)"),
      update_package_(database_.get(), "UPDATE package SET priority = ?2, summary = ?3 WHERE id = ?1"),
      delete_package_(database_.get(), "DELETE FROM package WHERE id = ?"),
      find_id_(database_.get(), "SELECT id FROM package WHERE name = ?"),
      find_provider_(database_.get(), "SELECT min(package_id) FROM provision WHERE name = ? GROUP BY name"),
      load_package_(database_.get(),
                    "SELECT name, version, section, priority, architecture, summary, installed_kib"
                    " FROM package WHERE id = ?"),
      load_dependencies_(database_.get(),
                         "SELECT d.kind, p.name FROM dependency d JOIN package p ON p.id = d.target_id"
                         " WHERE d.package_id = ? ORDER BY p.name, d.kind"),
      count_dependents_(database_.get(),
                        "SELECT count(*) FROM dependency WHERE target_id = ?1 AND package_id <> ?1"
                        " AND kind IN ('Depends', 'Pre-Depends')"),
      search_name_(database_.get(), "SELECT id FROM package WHERE name GLOB ? ORDER BY name LIMIT ?"),
      search_section_(database_.get(), "SELECT id FROM package WHERE section GLOB ? ORDER BY name LIMIT ?"),
      search_requires_(database_.get(),
                       "SELECT DISTINCT p.id FROM package t JOIN dependency d ON d.target_id = t.id"
                       " JOIN package p ON p.id = d.package_id WHERE t.name GLOB ? ORDER BY p.name LIMIT ?")
{}

int64_t catalog_store::insert_package(const package_record& record)
{
    insert_package_.with(record.name, record.version, record.section, record.priority, record.architecture,
                         record.summary, int64_t{record.installed_kib});
    insert_package_.next_row();
    const int64_t id = insert_package_.number(0);
    insert_package_.run();
    return id;
}

void catalog_store::insert_provided_name(int64_t package_id, const std::string& name)
{
    insert_provided_name_.with(package_id, name).run();
}

void catalog_store::insert_dependency(int64_t package_id, int64_t target_id, const std::string& kind)
{
    insert_dependency_.with(package_id, target_id, kind).run();
}

void catalog_store::update_package(int64_t id, const std::string& priority, const std::string& summary)
{
    update_package_.with(id, priority, summary).run();
}

void catalog_store::delete_package(int64_t id)
{
    delete_package_.with(id).run();
}

std::optional<int64_t> catalog_store::find_id(const std::string& name)
{
    return single_id(find_id_, name);
}

std::optional<int64_t> catalog_store::find_provider(const std::string& name)
{
    return single_id(find_provider_, name);
}

std::optional<stored_package> catalog_store::load_package(int64_t id)
{
    sqlite_statement& row = load_package_.with(id);
    if (!row.next_row())
        return std::nullopt;
    stored_package found;
    found.id = id;
    found.record.name = row.text(0);
    found.record.version = row.text(1);
    found.record.section = row.text(2);
    found.record.priority = row.text(3);
    found.record.architecture = row.text(4);
    found.record.summary = row.text(5);
    found.record.installed_kib = static_cast<int32_t>(row.number(6));
    row.run();
    return found;
}

std::vector<stored_dependency> catalog_store::load_dependencies(int64_t id)
{
    std::vector<stored_dependency> found;
    for (sqlite_statement& row = load_dependencies_.with(id); row.next_row();)
        found.push_back({row.text(0), row.text(1)});
    return found;
}

int64_t catalog_store::count_dependents(int64_t id)
{
    count_dependents_.with(id).next_row();
    const int64_t count = count_dependents_.number(0);
    count_dependents_.run();
    return count;
}

std::vector<int64_t> catalog_store::search(search_by attribute, const std::string& pattern, int64_t limit)
{
    sqlite_statement& statement = attribute == search_by::name      ? search_name_
                                  : attribute == search_by::section ? search_section_
                                                                    : search_requires_;
    std::vector<int64_t> found;
    for (sqlite_statement& row = statement.with(pattern, limit); row.next_row();)
        found.push_back(row.number(0));
    return found;
}

std::optional<int64_t> catalog_store::single_id(sqlite_statement& statement, const std::string& name)
{
    if (!statement.with(name).next_row())
        return std::nullopt;
    const int64_t id = statement.number(0);
    statement.run();
    return id;
}

store_transaction::store_transaction(catalog_store& store, kind of) : store_(store), kind_(of)
{
    store_.execute(of == kind::read ? "BEGIN" : of == kind::write ? "BEGIN IMMEDIATE" : "SAVEPOINT element");
}

store_transaction::~store_transaction()
{
    if (!open_)
        return;
    try {
        store_.execute(kind_ == kind::savepoint ? "ROLLBACK TO element; RELEASE element" : "ROLLBACK");
    } catch (...) {
        // SQLite has undone it already, as it does when the disk is full.
    }
}

void store_transaction::commit()
{
    store_.execute(kind_ == kind::savepoint ? "RELEASE element" : "COMMIT");
    open_ = false;
}

} // namespace catalog
