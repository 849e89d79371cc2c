#include "operation_steps.h"

#include <algorithm>

#include "fields.h"
#include "traced.h"

namespace catalog {
namespace {

constexpr int32_t default_search_limit = 50;
constexpr int32_t max_search_limit = 500;

std::string required_text(qel_flist_t* request, uint32_t field)
{
    std::optional<std::string> text = get_text(request, field);
    if (!text || text->empty())
        throw operation_failure(err_bad_request, "a field is missing", field);
    return *text;
}

operation_result identified(int64_t id)
{
    operation_result result{make_list()};
    set_object(result.reply.get(), fld_object, {database_number, id, package_type});
    return result;
}

// 0 when there is none.
int64_t find_by_name(operation_context& context, const std::string& name)
{
    const traced_function step("sql_find_package");
    return context.store.find_id(name).value_or(0);
}

// The package that a request names, by number or by name.
int64_t find_package(operation_context& context, qel_flist_t* request)
{
    const std::optional<object_id> object = get_object(request, fld_object);
    return object && object->id > 0 ? object->id : find_by_name(context, required_text(request, fld_name));
}

stored_package load_requested(operation_context& context, qel_flist_t* request)
{
    const int64_t id = find_package(context, request);
    std::optional<stored_package> found;
    if (id > 0) {
        const traced_function step("sql_load_package");
        found = context.store.load_package(id);
    }
    if (!found)
        throw operation_failure(err_not_found,
                                "no such package: " + get_text(request, fld_name).value_or("?"));
    return *found;
}

package_record record_of(qel_flist_t* request)
{
    package_record record;
    record.name = required_text(request, fld_name);
    record.version = required_text(request, fld_version);
    record.section = get_text(request, fld_section).value_or("");
    record.priority = get_text(request, fld_priority).value_or("");
    record.architecture = get_text(request, fld_architecture).value_or("");
    record.summary = get_text(request, fld_summary).value_or("");
    record.installed_kib = get_int(request, fld_installed_kib).value_or(0);
    return record;
}

// Finds what meets a requirement: a package of one of the names, by an operation of its own as any other
// caller would, or else one that provides such a name. 0: nothing does.
int64_t resolve(operation_context& context, const std::string& alternatives)
{
    for (size_t begin = 0; begin <= alternatives.size();) {
        const size_t end = std::min(alternatives.find('|', begin), alternatives.size());
        const std::string name = alternatives.substr(begin, end - begin);
        begin = end + 1;
        const list_ptr request = make_request(op_read_fields);
        set_text(request.get(), fld_name, name);
        const operation_result found = run_operation(context, op_read_fields, request.get());
        if (found.error.errnum == 0)
            return get_object(found.reply.get(), fld_object)->id;
        const traced_function step("sql_find_provider");
        if (const auto provider = context.store.find_provider(name))
            return *provider;
    }
    return 0;
}

} // namespace

operation_failure::operation_failure(uint32_t number, const std::string& text, uint32_t field_number)
    : std::runtime_error(text),
      error(make_error(number, QEL_CLASS_APPL, number == err_bad_request ? loc_request : loc_operation,
                       field_number))
{}

operation_result create_package(operation_context& context, qel_flist_t* request)
{
    const package_record record = record_of(request);
    if (find_by_name(context, record.name) != 0)
        throw operation_failure(err_already_exists, "package exists already: " + record.name);
    const traced_function step("sql_insert_package");
    const int64_t id = context.store.insert_package(record);
    for (qel_flist_t* provided : elements(request, fld_provides))
        context.store.insert_provided_name(id, required_text(provided, fld_name));
    return identified(id);
}

operation_result delete_package(operation_context& context, qel_flist_t* request)
{
    const stored_package package = load_requested(context, request);
    if (context.store.count_dependents(package.id) > 0)
        throw operation_failure(err_still_needed, "other packages depend on " + package.record.name);
    const traced_function step("sql_delete_package");
    context.store.delete_package(package.id);
    context.resolved.clear();
    return identified(package.id);
}

operation_result read_package(operation_context& context, qel_flist_t* request)
{
    const stored_package package = load_requested(context, request);
    operation_result result = identified(package.id);
    qel_flist_t* reply = result.reply.get();
    set_text(reply, fld_name, package.record.name);
    set_text(reply, fld_version, package.record.version);
    set_text(reply, fld_section, package.record.section);
    set_text(reply, fld_priority, package.record.priority);
    set_text(reply, fld_architecture, package.record.architecture);
    set_text(reply, fld_summary, package.record.summary);
    set_int(reply, fld_installed_kib, package.record.installed_kib);
    const traced_function step("sql_load_dependencies");
    for (const stored_dependency& dependency : context.store.load_dependencies(package.id)) {
        qel_flist_t* element = add_element(reply, fld_requirements);
        set_text(element, fld_kind, dependency.kind);
        set_text(element, fld_alternatives, dependency.name);
    }
    return result;
}

operation_result read_identifier(operation_context& context, qel_flist_t* request)
{
    const std::string name = required_text(request, fld_name);
    if (const auto known = context.resolved.find(name); known != context.resolved.end()) {
        operation_result result = identified(known->second);
        result.from_cache = true;
        return result;
    }
    const int64_t id = find_by_name(context, name);
    if (id == 0)
        throw operation_failure(err_not_found, "no such package: " + name);
    context.resolved[name] = id;
    return identified(id);
}

operation_result write_package(operation_context& context, qel_flist_t* request)
{
    const stored_package package = load_requested(context, request);
    const traced_function step("sql_update_package");
    context.store.update_package(package.id,
                                 get_text(request, fld_priority).value_or(package.record.priority),
                                 get_text(request, fld_summary).value_or(package.record.summary));
    return identified(package.id);
}

operation_result search_packages(operation_context& context, qel_flist_t* request)
{
    const std::string search = required_text(request, fld_search);
    const std::string pattern = required_text(request, fld_template);
    const int32_t limit = get_int(request, fld_limit).value_or(default_search_limit);
    const search_by attribute =
        search == "select from /package/name/$1"      ? search_by::name
        : search == "select from /package/section/$1" ? search_by::section
        : search == "select from /package/requires/$1"
            ? search_by::requires_package
            : throw operation_failure(err_bad_request, "unknown search: " + search, fld_search);
    std::vector<int64_t> ids;
    {
        const traced_function step("sql_search");
        ids = context.store.search(attribute, pattern, std::clamp(limit, 1, max_search_limit));
    }
    operation_result result{make_list()};
    for (const int64_t id : ids) {
        const list_ptr read = make_request(op_read, id);
        operation_result found = run_operation(context, op_read, read.get());
        if (found.error.errnum == 0)
            add_element(result.reply.get(), fld_results, std::move(found.reply));
    }
    return result;
}

operation_result link_requirements(operation_context& context, qel_flist_t* request)
{
    const stored_package package = load_requested(context, request);
    operation_result result = identified(package.id);
    int32_t linked = 0;
    for (qel_flist_t* wanted : elements(request, fld_requirements)) {
        const std::string kind = required_text(wanted, fld_kind);
        const std::string alternatives = required_text(wanted, fld_alternatives);
        if (const int64_t target = resolve(context, alternatives)) {
            const traced_function step("sql_insert_dependency");
            context.store.insert_dependency(package.id, target, kind);
            ++linked;
            continue;
        }
        qel_flist_t* missing = add_element(result.reply.get(), fld_unresolved);
        set_text(missing, fld_kind, kind);
        set_text(missing, fld_alternatives, alternatives);
    }
    set_int(result.reply.get(), fld_linked, linked);
    const size_t unresolved = elements(result.reply.get(), fld_unresolved).size();
    if (unresolved > 0) {
        const std::string text = std::to_string(unresolved) + " requirements that nothing provides";
        result.error = operation_failure(err_unresolved, text, fld_unresolved).error;
        result.error_text = text;
    }
    return result;
}

operation_result run_batch(operation_context& context, qel_flist_t* request)
{
    const bool atomic = get_int(request, fld_atomic).value_or(0) != 0;
    operation_result result{make_list()};
    for (qel_flist_t* part : elements(request, fld_requests)) {
        const auto opcode = static_cast<uint32_t>(get_int(part, fld_opcode).value_or(0));
        if (operation_name(opcode) == nullptr || opcode == op_batch)
            throw operation_failure(err_bad_request,
                                    "a batch may not hold operation " + std::to_string(opcode));
        store_transaction savepoint(context.store, store_transaction::kind::savepoint);
        operation_result done = run_operation(context, opcode, part);
        if (keeps_its_work(done.error.errnum))
            savepoint.commit();
        else if (atomic)
            throw operation_failure(err_batch_undone, "batch undone: " + done.error_text);
        else
            context.resolved.clear();
        add_element(result.reply.get(), fld_results, reply_of(std::move(done)));
    }
    return result;
}

} // namespace catalog
