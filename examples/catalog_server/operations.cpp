#include "operations.h"

#include <algorithm>
#include <array>
#include <mutex>

#include "fields.h"
#include "operation_steps.h"
#include "traced.h"

namespace catalog {
namespace {

struct operation_entry {
    uint32_t opcode;
    const char* name; // shown where the platform has none for the number
    bool writes;
    operation_result (*run)(operation_context&, qel_flist_t* request);
};

constexpr std::array operations{
    operation_entry{op_create, "op_create", true, create_package},
    operation_entry{op_delete, "op_delete", true, delete_package},
    operation_entry{op_read, "op_read", false, read_package},
    operation_entry{op_read_fields, "op_read_fields", false, read_identifier},
    operation_entry{op_write, "op_write", true, write_package},
    operation_entry{op_search, "op_search", false, search_packages},
    operation_entry{op_link, "op_link", true, link_requirements},
    operation_entry{op_batch, "op_batch", true, run_batch},
};

const operation_entry* find_operation(uint32_t opcode)
{
    const auto found = std::find_if(operations.begin(), operations.end(),
                                    [&](const operation_entry& entry) { return entry.opcode == opcode; });
    return found == operations.end() ? nullptr : &*found;
}

// SQLite takes one writer at a time and makes the others sleep and try again; in line they wait less.
std::mutex writers; // taken before a write transaction begins, nothing is locked inside it

std::unique_lock<std::mutex> writers_turn(service_figures& figures, const operation_entry& entry)
{
    if (!entry.writes)
        return {};
    const counted waiting(figures.transactions_waiting);
    const traced_function step("wait_for_writers_turn");
    return std::unique_lock(writers);
}

// A transaction in the figures, while it is open and by how it ended.
class counted_transaction {
public:
    explicit counted_transaction(service_figures& figures)
        : figures_(figures), open_(figures.transactions_open)
    {}
    ~counted_transaction() { ++(committed_ ? figures_.transactions_done : figures_.transactions_failed); }
    void committed() { committed_ = true; }
    counted_transaction(const counted_transaction&) = delete;
    counted_transaction& operator=(const counted_transaction&) = delete;

private:
    service_figures& figures_;
    counted open_;
    bool committed_ = false;
};

void commit(store_transaction& transaction)
{
    const traced_function step("sql_commit");
    transaction.commit();
}

operation_result run_in_transaction(operation_context& context, const operation_entry& entry,
                                    qel_flist_t* request)
{
    const std::unique_lock turn = writers_turn(context.figures, entry);
    counted_transaction counting(context.figures);
    store_transaction transaction(context.store, entry.writes ? store_transaction::kind::write
                                                              : store_transaction::kind::read);
    context.in_transaction = true;
    operation_result result = entry.run(context, request);
    if (keeps_its_work(result.error.errnum)) {
        commit(transaction);
        counting.committed();
    }
    return result;
}

operation_result run_contained(operation_context& context, const operation_entry& entry, qel_flist_t* request)
try {
    return context.in_transaction ? entry.run(context, request) : run_in_transaction(context, entry, request);
} catch (const operation_failure& failure) {
    return {nullptr, failure.error, failure.what()};
} catch (const std::exception& failure) {
    return {nullptr, make_error(err_store, QEL_CLASS_SYSTEM, loc_store), failure.what()};
}

} // namespace

list_ptr reply_of(operation_result result)
{
    list_ptr reply = result.reply ? std::move(result.reply) : make_list();
    if (result.error.errnum != 0)
        set_error(reply.get(), result.error, result.error_text);
    return reply;
}

const char* operation_name(uint32_t opcode)
{
    const operation_entry* entry = find_operation(opcode);
    return entry ? entry->name : nullptr;
}

operation_result run_operation(operation_context& context, uint32_t opcode, qel_flist_t* request,
                               call_site where)
{
    const operation_entry* entry = find_operation(opcode);
    if (entry == nullptr) {
        const std::string text = "no such operation: " + std::to_string(opcode);
        return {nullptr, operation_failure(err_bad_request, text, fld_opcode).error, text};
    }
    traced_operation traced(opcode, entry->name, request, where);
    operation_result result = run_contained(context, *entry, request);
    traced.finish(result.reply.get(), result.error, result.from_cache);
    ++(result.error.errnum == 0 ? context.figures.operations_done : context.figures.operations_failed);
    return result;
}

list_ptr answer(catalog_store& store, service_figures& figures, qel_flist_t* request)
{
    set_correlation(get_text(request, fld_correlation).value_or(""));
    operation_context context{store, figures};
    const auto opcode = static_cast<uint32_t>(get_int(request, fld_opcode).value_or(0));
    return reply_of(run_operation(context, opcode, request));
}

} // namespace catalog
