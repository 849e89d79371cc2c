#include <algorithm>
#include <cstdio>
#include <fstream>
#include <span>

#include "client_commands.h"
#include "client_session.h"
#include "dpkg_status.h"
#include "fields.h"

namespace catalog {
namespace {

constexpr size_t batch_size = 100;
constexpr size_t real_database_size = 100;

std::vector<package_record> read_first_real(const std::vector<std::string>& files, std::string& used)
{
    for (const std::string& file : files) {
        std::ifstream in(file);
        std::vector<package_record> records = read_dpkg_status(in);
        if (records.size() >= real_database_size || file == files.back()) {
            used = file;
            return records;
        }
    }
    return {};
}

list_ptr create_request(const package_record& record)
{
    list_ptr request = named_request(op_create, record.name);
    qel_flist_t* list = request.get();
    set_text(list, fld_version, record.version);
    set_text(list, fld_section, record.section);
    set_text(list, fld_priority, record.priority);
    set_text(list, fld_architecture, record.architecture);
    set_text(list, fld_summary, record.summary);
    set_int(list, fld_installed_kib, record.installed_kib);
    for (const std::string& name : record.provides)
        set_text(add_element(list, fld_provides), fld_name, name);
    return request;
}

list_ptr link_request(const package_record& record)
{
    list_ptr request = named_request(op_link, record.name);
    for (const requirement& wanted : record.requirements) {
        std::string alternatives;
        for (const std::string& name : wanted.alternatives)
            alternatives += (alternatives.empty() ? "" : "|") + name;
        qel_flist_t* element = add_element(request.get(), fld_requirements);
        set_text(element, fld_kind, wanted.kind);
        set_text(element, fld_alternatives, alternatives);
    }
    return request;
}

struct load_totals {
    size_t refused = 0;
    int64_t linked = 0;
    size_t unresolved = 0;
};

// One pass over all records, a request for each, in batches.
template <class MakeRequest>
void run_pass(client_session& session, std::span<const package_record> records, MakeRequest make,
              load_totals& totals)
{
    while (!records.empty()) {
        const list_ptr batch = make_request(op_batch);
        const size_t count = std::min(batch_size, records.size());
        for (const package_record& record : records.first(count))
            add_element(batch.get(), fld_requests, make(record));
        const list_ptr reply = session.expect(0, batch.get());
        for (qel_flist_t* done : elements(reply.get(), fld_results)) {
            const uint32_t errnum = get_error(done).errnum;
            totals.refused += keeps_its_work(errnum) ? 0U : 1U;
            totals.linked += get_int(done, fld_linked).value_or(0);
            totals.unresolved += elements(done, fld_unresolved).size();
        }
        records = records.subspan(count);
    }
}

} // namespace

void load_catalog(uint16_t port, const std::vector<std::string>& files)
{
    std::string used;
    const std::vector<package_record> records = read_first_real(files, used);
    if (records.empty())
        throw unexpected_reply("no installed packages in " + used);
    client_session session(port, "catalog_load");
    load_totals totals;
    run_pass(session, records, create_request, totals);
    run_pass(session, records, link_request, totals);
    std::printf(
        "load: %zu packages of %s in %ld requests, %zu refused; %ld requirements linked, %zu that nothing "
        "provides\n",
        records.size(), used.c_str(), session.requests(), totals.refused, totals.linked, totals.unresolved);
}

} // namespace catalog
