#ifndef OSTRUM_TOOL_SERVE_HTTP_SERVER_H
#define OSTRUM_TOOL_SERVE_HTTP_SERVER_H
// Answers GET and HEAD over HTTP, with a thread of its own that calls one handler at a time.
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

struct MHD_Connection;
struct MHD_Daemon;

namespace ostrum_tool {

struct http_request {
    std::string_view path;
    std::string_view accept; // that header; "" without it
};

struct http_reply {
    unsigned status = 200;
    std::string content_type;
    std::string body;
};

class http_server {
public:
    using request_handler = std::function<http_reply(const http_request&)>;

    // The socket listens and outlives the server. The thread starts with the caller's signal mask. Throws
    // input_error.
    http_server(int listening_fd, request_handler answer);
    // Takes no new connection: the socket listens no more. Gives replies under way some seconds, then ends.
    ~http_server();
    http_server(const http_server&) = delete;
    http_server& operator=(const http_server&) = delete;

private:
    friend struct http_callbacks;
    struct stopper {
        void operator()(MHD_Daemon* daemon) const;
    };

    request_handler answer_;
    std::atomic<int> under_way_{0}; // requests that are not answered to the end
    std::unique_ptr<MHD_Daemon, stopper> daemon_;
};

} // namespace ostrum_tool
#endif
