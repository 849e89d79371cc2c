#include "client_session.h"

#include <unistd.h>

#include "fields.h"

namespace catalog {

client_session::client_session(uint16_t port, const std::string& program)
    : socket_(connect_to_loopback(port)),
      correlation_("localhost:" + std::to_string(getpid()) + ":" + program + ":")
{}

list_ptr client_session::ask(qel_flist_t* request)
{
    set_text(request, fld_correlation, correlation_ + std::to_string(++requests_));
    send_message(socket_, request);
    list_ptr reply = receive_message(socket_);
    if (!reply)
        throw unexpected_reply("the server closed the connection");
    if (get_error(reply.get()).errnum != 0)
        ++errors_;
    return reply;
}

list_ptr client_session::expect(uint32_t errnum, qel_flist_t* request)
{
    list_ptr reply = ask(request);
    const uint32_t got = get_error(reply.get()).errnum;
    if (got != errnum)
        throw unexpected_reply("expected error " + std::to_string(errnum) + ", got " + std::to_string(got) +
                               " (" + get_text(reply.get(), fld_err_text).value_or("") + ") for operation " +
                               std::to_string(get_int(request, fld_opcode).value_or(0)) + " " +
                               get_text(request, fld_name).value_or(""));
    return reply;
}

list_ptr named_request(uint32_t opcode, const std::string& name)
{
    list_ptr request = make_request(opcode);
    set_text(request.get(), fld_name, name);
    return request;
}

list_ptr search_request(const std::string& attribute, const std::string& pattern, int32_t limit)
{
    list_ptr request = make_request(op_search);
    set_text(request.get(), fld_search, "select from /package/" + attribute + "/$1");
    set_text(request.get(), fld_template, pattern);
    set_int(request.get(), fld_limit, limit);
    return request;
}

} // namespace catalog
