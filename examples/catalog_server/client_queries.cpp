#include <array>
#include <cstdio>
#include <future>
#include <random>

#include <unistd.h>

#include "client_commands.h"
#include "client_session.h"
#include "fields.h"

namespace catalog {
namespace {

struct search_question {
    const char* attribute;
    const char* pattern;
};
constexpr std::array search_questions{
    search_question{"name", "lib*ssl*"},
    search_question{"section", "admin"},
    search_question{"requires", "libc6"},
    search_question{"name", "no-such*"},
};
constexpr int32_t search_limit = 25;
constexpr int32_t names_limit = 500;

// One connection's questions; the same every time for the same number.
class questioner {
public:
    questioner(uint16_t port, int number)
        : session_(port, "catalog_query"), random_(static_cast<uint32_t>(number)),
          own_name_("catalog-query-" + std::to_string(getpid()) + "-" + std::to_string(number))
    {}

    std::pair<int64_t, int64_t> run(int rounds)
    {
        learn_names();
        create(own_name_, 0);
        for (int round = 0; round < rounds; ++round)
            ask_once(round);
        session_.expect(0, named_request(op_delete, own_name_).get());
        return {session_.requests(), session_.errors()};
    }

private:
    void learn_names()
    {
        const list_ptr reply = session_.expect(0, search_request("name", "*", names_limit).get());
        for (qel_flist_t* found : elements(reply.get(), fld_results)) {
            const std::string name = get_text(found, fld_name).value_or("");
            if (!name.starts_with("catalog-query-")) // of the other connections: they come and go
                names_.push_back(name);
        }
        if (names_.empty())
            throw unexpected_reply("the catalogue is empty: load it first");
    }
    void ask_once(int round)
    {
        switch (round % 20) {
        case 3:
        case 13:
            return search();
        case 5:
            return create(own_name_, err_already_exists);
        case 7:
            return require_the_impossible();
        case 9:
            return write();
        case 11:
            return delete_what_is_needed();
        case 15:
            return undo_a_batch(round);
        case 17:
        case 19:
            return read("no-such-package-" + std::to_string(round), err_not_found);
        default:
            return read(names_[random_() % names_.size()], 0);
        }
    }
    void read(const std::string& name, uint32_t errnum)
    {
        const list_ptr reply = session_.expect(errnum, named_request(op_read, name).get());
        if (errnum == 0 && get_text(reply.get(), fld_name) != name)
            throw unexpected_reply("asked for " + name + ", got another package");
        for (qel_flist_t* dependency : elements(reply.get(), fld_requirements)) {
            if (get_text(dependency, fld_kind) == "Depends")
                needed_ = get_text(dependency, fld_alternatives).value_or("");
        }
    }
    void search()
    {
        const search_question& question = search_questions[random_() % search_questions.size()];
        session_.expect(0, search_request(question.attribute, question.pattern, search_limit).get());
    }
    void create(const std::string& name, uint32_t errnum)
    {
        session_.expect(errnum, create_request(name).get());
    }
    static list_ptr create_request(const std::string& name)
    {
        list_ptr request = named_request(op_create, name);
        set_text(request.get(), fld_version, "1.0");
        set_text(request.get(), fld_section, "queries");
        return request;
    }
    void require_the_impossible()
    {
        const list_ptr request = named_request(op_link, own_name_);
        for (const char* names : {"nothing-provides-this|nor-this", "libc6|libc"}) {
            qel_flist_t* wanted = add_element(request.get(), fld_requirements);
            set_text(wanted, fld_kind, "Suggests");
            set_text(wanted, fld_alternatives, names);
        }
        session_.expect(err_unresolved, request.get());
    }
    void write()
    {
        const list_ptr request = named_request(op_write, own_name_);
        set_text(request.get(), fld_summary,
                 "written " + std::to_string(session_.requests()) + " requests in");
        session_.expect(0, request.get());
    }
    void delete_what_is_needed()
    {
        if (!needed_.empty())
            session_.expect(err_still_needed, named_request(op_delete, needed_).get());
    }
    // The second part fails, so the first must be gone as well.
    void undo_a_batch(int round)
    {
        const std::string passing = own_name_ + "-" + std::to_string(round);
        const list_ptr batch = make_request(op_batch);
        set_int(batch.get(), fld_atomic, 1);
        add_element(batch.get(), fld_requests, create_request(passing));
        add_element(batch.get(), fld_requests, create_request(own_name_));
        session_.expect(err_batch_undone, batch.get());
        read(passing, err_not_found);
    }

    client_session session_;
    std::mt19937 random_;
    std::string own_name_;
    std::string needed_; // a package that another one depends on
    std::vector<std::string> names_;
};

// A reply that says so, or a closed connection: both are right for bytes that are no message.
void expect_refusal(uint16_t port, const std::string& bytes, const char* what)
{
    const unique_fd socket = connect_to_loopback(port);
    send_bytes(socket, bytes.data(), bytes.size());
    const list_ptr reply = receive_message(socket);
    if (reply && get_error(reply.get()).errnum != err_bad_request)
        throw unexpected_reply(std::string("not refused: ") + what);
}

} // namespace

void run_queries(uint16_t port, int connections, int rounds)
{
    std::vector<std::future<std::pair<int64_t, int64_t>>> running;
    for (int number = 1; number <= connections; ++number)
        running.push_back(
            std::async(std::launch::async, [=] { return questioner(port, number).run(rounds); }));
    int64_t requests = 0;
    int64_t errors = 0;
    for (auto& connection : running) {
        const auto [asked, failed] = connection.get();
        requests += asked;
        errors += failed;
    }
    std::printf("query: %d connections, %ld requests, %ld of them refused as they should be\n", connections,
                requests, errors);
}

void send_hostile_bytes(uint16_t port)
{
    using namespace std::string_literals;
    expect_refusal(port, "GET / HTTP/1.0\r\n\r\n", "another protocol");
    expect_refusal(port, "CAT1\xff\xff\xff\xff"s, "a length of 4 GiB");
    expect_refusal(port, "CAT1\x06\0\0\0\x01\0\x01\x02\x03\x04"s, "a field that is in no dictionary");
    expect_refusal(port, "CAT1\x0a\0\0\0\x01\0\x1a\x27\0\x05\xff\xff\xff\x7f"s,
                   "a text longer than its message");
    client_session session(port, "catalog_probe");
    session.expect(err_bad_request, make_request(4711).get());
    session.expect(err_bad_request, make_request(op_read).get());
    session.expect(0, search_request("name", "*", 1).get());
    std::printf("hostile: 4 broken messages refused, then %ld requests answered as ever\n",
                session.requests() - 1); // the one with an unknown number is not an operation
}

void show_package(uint16_t port, const std::string& name)
{
    const list_ptr reply = client_session(port, "catalog_show").expect(0, named_request(op_read, name).get());
    qel_flist_print(reply.get());
}

void show_search(uint16_t port, const std::string& attribute, const std::string& pattern)
{
    client_session session(port, "catalog_show");
    const list_ptr reply = session.expect(0, search_request(attribute, pattern, names_limit).get());
    for (qel_flist_t* found : elements(reply.get(), fld_results))
        std::printf("%-32s %-20s %s\n", get_text(found, fld_name).value_or("").c_str(),
                    get_text(found, fld_version).value_or("").c_str(),
                    get_text(found, fld_summary).value_or("").c_str());
}

} // namespace catalog
