#include "connection_worker.h"

#include <cstdio>
#include <system_error>

#include "fields.h"
#include "idle_wait.h"
#include "operations.h"
#include "process_signals.h"
#include "traced.h"
#include "wire.h"

namespace catalog {
namespace {

list_ptr refusal(const qel_errbuf_t& error, const std::string& text)
{
    list_ptr reply = make_list();
    set_error(reply.get(), error, text);
    return reply;
}

list_ptr ask_data_manager(const unique_fd& data_manager, qel_flist_t* request)
{
    const traced_function step("call_data_manager");
    send_message(data_manager, request);
    list_ptr reply = receive_message(data_manager);
    if (!reply)
        throw std::system_error(ECONNRESET, std::generic_category(), "the data manager has closed");
    return reply;
}

// The reply to one request. Without a data manager the client still gets an answer.
list_ptr handle(const unique_fd& data_manager, qel_flist_t* request)
{
    set_correlation(get_text(request, fld_correlation).value_or(""));
    const auto opcode = static_cast<uint32_t>(get_int(request, fld_opcode).value_or(0));
    const char* name = operation_name(opcode);
    if (name == nullptr)
        return refusal(make_error(err_bad_request, QEL_CLASS_APPL, loc_request),
                       "no such operation: " + std::to_string(opcode));
    traced_operation traced(opcode, name, request);
    list_ptr reply;
    try {
        reply = ask_data_manager(data_manager, request);
    } catch (const std::exception& failure) {
        reply = refusal(make_error(err_no_data_manager, QEL_CLASS_SYSTEM, loc_connection), failure.what());
    }
    traced.finish(reply.get(), get_error(reply.get()));
    return reply;
}

// The client's next request; a message that cannot be read is answered before the connection ends, as
// nobody knows where the next one would begin.
list_ptr read_request(const unique_fd& client)
{
    traced_function step("receive_request");
    try {
        return receive_message(client);
    } catch (const wire_error& error) {
        const qel_errbuf_t bad_request = make_error(err_bad_request, QEL_CLASS_APPL, loc_request);
        step.failed(bad_request);
        const list_ptr reply = refusal(bad_request, error.what());
        send_message(client, reply.get());
        throw;
    }
}

bool client_waits(const unique_fd& client, const unique_fd& signals)
{
    idle_wait wait;
    wait.add(client);
    wait.add(signals);
    wait.wait();
    return !(wait.ready(signals) && take_signals(signals).stop);
}

int serve_client(const unique_fd& client, const unique_fd& data_manager, const unique_fd& signals)
{
    while (client_waits(client, signals)) {
        const list_ptr request = read_request(client);
        if (!request)
            break;
        const list_ptr reply = handle(data_manager, request.get());
        send_message(client, reply.get());
        // A late reply would be taken for the answer to the next request.
        if (get_error(reply.get()).errnum == err_no_data_manager)
            return 1;
    }
    return 0;
}

} // namespace

int run_connection_worker(unique_fd client, const std::string& data_manager_path)
try {
    const unique_fd signals = open_signal_fd();
    const unique_fd data_manager = connect_to_path(data_manager_path);
    try {
        return serve_client(client, data_manager, signals);
    } catch (const std::exception& error) { // the client's doing: it broke off, or sent what is no message
        std::fprintf(stderr, "worker: client dropped: %s\n", error.what());
        return 0;
    }
} catch (const std::exception& error) {
    std::fprintf(stderr, "worker: %s\n", error.what());
    return 1;
}

} // namespace catalog
