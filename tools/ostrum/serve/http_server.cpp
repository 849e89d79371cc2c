#include "serve/http_server.h"

#include <chrono>
#include <exception>
#include <thread>

#include <microhttpd.h>
#include <sys/socket.h>

#include "tool_errors.h"

namespace ostrum_tool {
namespace {

// Far beyond what scrapers and people need; a client that stalls does not hold the others up.
constexpr unsigned most_connections = 64;
constexpr unsigned idle_limit_s = 30;
constexpr auto longest_farewell = std::chrono::seconds(5);
constexpr auto farewell_step = std::chrono::milliseconds(5);

std::string_view header(MHD_Connection* connection, const char* name)
{
    const char* const value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value != nullptr ? value : "";
}

// The library keeps the body until it is sent; it is not copied for that.
MHD_Response* response_of(http_reply& reply)
{
    auto body = std::make_unique<std::string>(std::move(reply.body));
    MHD_Response* const response = MHD_create_response_from_buffer_with_free_callback_cls(
        body->size(), body->data(), [](void* kept) { delete static_cast<std::string*>(kept); }, body.get());
    if (response != nullptr) {
        static_cast<void>(body.release()); // the callback deletes it
    }
    return response;
}

MHD_Result send(MHD_Connection* connection, http_reply reply)
{
    MHD_Response* const response = response_of(reply);
    if (response == nullptr) {
        return MHD_NO; // closes the connection
    }
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, reply.content_type.c_str());
    MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    MHD_add_response_header(response, MHD_HTTP_HEADER_VARY, MHD_HTTP_HEADER_ACCEPT);
    MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
    if (reply.status == MHD_HTTP_METHOD_NOT_ALLOWED) {
        MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    }
    const MHD_Result queued = MHD_queue_response(connection, reply.status, response);
    MHD_destroy_response(response);
    return queued;
}

} // namespace

// What the library calls: no exception may pass through it.
struct http_callbacks {
    static MHD_Result on_request(void* given, MHD_Connection* connection, const char* path,
                                 const char* method, const char*, const char*, size_t* upload_bytes,
                                 void** request)
    {
        http_server& server = *static_cast<http_server*>(given);
        const bool is_new = *request == nullptr; // the headers are there, no more
        if (is_new) {
            *request = &server;
            ++server.under_way_;
        }
        try {
            const bool is_read = std::string_view(method) == MHD_HTTP_METHOD_GET ||
                                 std::string_view(method) == MHD_HTTP_METHOD_HEAD;
            if (!is_read) { // at once: nobody waits for its body
                return send(connection, {MHD_HTTP_METHOD_NOT_ALLOWED, "text/plain", "only GET and HEAD\n"});
            }
            if (is_new || *upload_bytes > 0) {
                *upload_bytes = 0; // a body that nobody asked for
                return MHD_YES;
            }
            return send(connection, server.answer_({path, header(connection, MHD_HTTP_HEADER_ACCEPT)}));
        } catch (const std::exception&) {
            return MHD_NO; // memory is short; the connection is closed
        }
    }

    static void on_completed(void* given, MHD_Connection*, void** request, MHD_RequestTerminationCode)
    {
        if (*request != nullptr) {
            --static_cast<http_server*>(given)->under_way_;
        }
    }
};

http_server::http_server(int listening_fd, request_handler answer)
    : answer_(std::move(answer)),
      daemon_(MHD_start_daemon(MHD_USE_AUTO_INTERNAL_THREAD | MHD_USE_ITC, 0, nullptr, nullptr,
                               &http_callbacks::on_request, this, MHD_OPTION_LISTEN_SOCKET, listening_fd,
                               MHD_OPTION_NOTIFY_COMPLETED, &http_callbacks::on_completed, this,
                               MHD_OPTION_CONNECTION_LIMIT, most_connections, MHD_OPTION_CONNECTION_TIMEOUT,
                               idle_limit_s, MHD_OPTION_END))
{
    if (!daemon_) {
        throw input_error("the HTTP server does not start");
    }
}

http_server::~http_server()
{
    // The listening socket is its owner's again; as long as that keeps it, the system would go on taking
    // connections that nobody answers.
    const MHD_socket listening = MHD_quiesce_daemon(daemon_.get());
    ::shutdown(listening, SHUT_RDWR);
    const auto end = std::chrono::steady_clock::now() + longest_farewell;
    while (under_way_ > 0 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(farewell_step);
    }
}

void http_server::stopper::operator()(MHD_Daemon* daemon) const
{
    MHD_stop_daemon(daemon);
}

} // namespace ostrum_tool
