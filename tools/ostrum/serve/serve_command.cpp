#include <csignal>
#include <memory>

#include "cli/command.h"
#include "output/markup_text.h"
#include "output/value_text.h"
#include "prometheus/data_file_metrics.h"
#include "serve/accept_header.h"
#include "serve/http_server.h"
#include "serve/listening_socket.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

struct serve_choice {
    std::vector<std::string> paths;
    std::string address = "127.0.0.1:9977";
    label_choice labels;
};

constexpr const char* plain_text = "text/plain; charset=utf-8";

http_reply index_page(const serve_choice& chosen)
{
    std::string body = "<!doctype html><meta charset=\"utf-8\"><title>ostrum</title><h1>ostrum</h1>\n"
                       "<p><a href=\"/metrics\">metrics</a>, <a href=\"/healthz\">health</a></p>\n<ul>\n";
    for (const std::string& path : chosen.paths) {
        body += "<li><code>" + markup_text(printable(path)) + "</code></li>\n";
    }
    return {200, "text/html; charset=utf-8", body + "</ul>\n"};
}

// In order when every data file can be read.
http_reply health(const serve_choice& chosen)
{
    std::string failures;
    for (const exported_file& file : read_exported_files(chosen.paths)) {
        failures += file.content ? "" : printable(file.failure) + "\n";
    }
    return {failures.empty() ? 200U : 503U, plain_text, failures.empty() ? "ok\n" : failures};
}

http_reply metrics(const serve_choice& chosen, std::string_view accept)
{
    const exposition_format format = format_for(accept);
    return {200, content_type_of(format),
            exposition_of(read_exported_files(chosen.paths), chosen.labels, format)};
}

http_reply answer(const serve_choice& chosen, const http_request& request)
{
    return request.path == "/metrics"   ? metrics(chosen, request.accept)
           : request.path == "/healthz" ? health(chosen)
           : request.path == "/"        ? index_page(chosen)
                                        : http_reply{404, plain_text, "there is /metrics and /healthz\n"};
}

// While it lives, SIGINT and SIGTERM wait for wait() in this thread and those that it starts.
class end_signals {
public:
    end_signals()
    {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals_, &before_);
    }
    ~end_signals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    end_signals(const end_signals&) = delete;
    end_signals& operator=(const end_signals&) = delete;

    void wait() const
    {
        int signal = 0;
        sigwait(&signals_, &signal);
    }

private:
    sigset_t signals_{}, before_{};
};

int run_serve(const serve_choice& chosen, const streams& to)
{
    const end_signals signals;
    const listening_socket socket(chosen.address);
    const http_server server(socket.fd(),
                             [&](const http_request& request) { return answer(chosen, request); });
    if (!socket.is_loopback()) {
        to.err << "ostrum: whoever reaches this address can read the metrics\n";
    }
    to.err << "serving http://" << socket.name() << "/metrics until SIGINT or SIGTERM\n" << std::flush;
    signals.wait();
    return exit_done;
}

command_body declare_serve(CLI::App& app)
{
    const auto chosen = std::make_shared<serve_choice>();
    app.add_option("DATAFILE", chosen->paths,
                   "Data files, which need not be there yet (default: ostrum_data.dat)");
    app.add_option("--listen", chosen->address, "Address and port (default: 127.0.0.1:9977); port 0: any");
    add_label_options(app, chosen->labels);
    return [chosen](const streams& to) {
        if (chosen->paths.empty()) {
            chosen->paths = {default_data_file};
        }
        return run_serve(*chosen, to);
    };
}

} // namespace

const command serve_command{"serve", "The metrics of data files over HTTP, for Prometheus", declare_serve};

} // namespace ostrum_tool
