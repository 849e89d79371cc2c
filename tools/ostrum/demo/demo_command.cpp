#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include <fmt/format.h>

#include "cli/command.h"
#include "demo/sample_programs.h"
#include "output/value_text.h"
#include "readers/data_file.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

namespace fs = std::filesystem;

constexpr int clients = 3;
constexpr const char* connections = "2";
constexpr const char* rounds = "300";
constexpr const char* package_database = "/var/lib/dpkg/status";
constexpr auto patience = std::chrono::seconds(30);

struct demo_choice {
    std::string directory, programs;
};

struct demo_run {
    sample_programs programs;
    std::string directory;
    const streams& to;

    [[nodiscard]] std::string file(const char* name) const { return directory + "/" + name; }
    void say(const std::string& step) const { to.err << step << std::endl; } // before what it announces
};

// New, or one that is empty; what is in the way of a run stays.
std::string fresh_directory(const std::string& wanted)
{
    std::error_code error;
    if (wanted.empty()) {
        std::string pattern = (fs::temp_directory_path() / "ostrum-demo-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw input_error(pattern + ": " + std::strerror(errno));
        }
        return pattern;
    }
    fs::create_directories(wanted, error);
    if (!error && !fs::is_empty(wanted, error) && !error) {
        throw input_error(wanted + ": not empty; the run needs a fresh directory");
    }
    const fs::path whole = error ? fs::path() : fs::canonical(wanted, error);
    if (error) {
        throw input_error(wanted + ": " + error.message());
    }
    return whole.string();
}

// The server reads its settings in the directory that it runs in.
void write_settings(const demo_run& run)
{
    fs::create_directory(run.file("trace"));
    fs::copy_file(run.programs.settings + "/buckets.conf", run.file("buckets.conf"));
    std::ofstream settings(run.file("qel.conf"));
    for (const char* part : {"/qel.conf", "/tracing.conf"}) {
        settings << std::ifstream(run.programs.settings + part).rdbuf();
    }
    if (!settings.flush()) {
        throw input_error(run.file("qel.conf") + ": could not be written");
    }
}

void wait_until_ready(const demo_run& run, running_program& server)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!fs::exists(run.file("catalog.port"))) {
        if (server.has_ended() || std::chrono::steady_clock::now() > end) {
            throw input_error("the sample server did not get ready; " + run.file("server.log") +
                              " tells why");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

std::unique_ptr<running_program> start_client(const demo_run& run, std::vector<std::string> words)
{
    words.insert(words.begin(), {run.programs.client, run.file("catalog.port")});
    return std::make_unique<running_program>(std::move(words), run.directory, run.file("clients.log"));
}

void wait_for_client(const demo_run& run, running_program& client)
{
    if (client.exit_status() != 0) {
        throw input_error("a client was not served as it should be; " + run.file("clients.log") +
                          " tells why");
    }
}

void ask_server(const demo_run& run)
{
    run.say("loading the package database");
    wait_for_client(
        run, *start_client(run, {"load", package_database, run.programs.settings + "/packages.status"}));
    run.say(fmt::format("asking from {} clients with {} connections each", clients, connections));
    std::vector<std::unique_ptr<running_program>> asking;
    asking.reserve(clients);
    for (int client = 0; client < clients; ++client) {
        asking.push_back(start_client(run, {"query", connections, rounds}));
    }
    for (const auto& client : asking) {
        wait_for_client(run, *client);
    }
}

void serve_clients(const demo_run& run)
{
    run.say("starting the sample server, traced, in " + printable(run.directory));
    running_program server({run.programs.server}, run.directory, run.file("server.log"));
    wait_until_ready(run, server);
    ask_server(run);
    run.say("stopping the server");
    server.stop();
    if (const int status = server.exit_status(); status != 0) {
        throw input_error(fmt::format("the sample server ended with status {}; {} tells why", status,
                                      run.file("server.log")));
    }
}

// What a person would see who typed it.
int show_command(const demo_run& run, std::vector<std::string> words)
{
    run.to.out << "$ ostrum";
    for (const std::string& word : words) {
        run.to.out << " " << printable(shell_word(word));
    }
    run.to.out << "\n\n";
    const int status = run_tool(words, run.to);
    run.to.out << "\n";
    return status;
}

void show_ways_on(const demo_run& run)
{
    const std::string trace = printable(shell_word(run.file("trace")));
    const std::string data = printable(shell_word(run.file(default_data_file)));
    run.to.out << "Where things are, in " << printable(run.directory) << ":\n"
               << "  trace/*.plog.txt   the trace files, one per process or key and period\n"
               << "  ostrum_data.dat    counters, errors and variables, shared by the server's processes\n"
               << "  qel.conf           the settings of this run\n"
               << "  server.log         what the server and the library said\n"
               << "What to try next:\n"
               << "  ostrum report --buckets --sort self " << trace << "\n"
               << "  ostrum flame " << trace << " -o flame.html\n"
               << "  ostrum errors " << data << "\n"
               << "  ostrum doctor " << data << "\n"
               << "  ostrum --help\n";
}

int run_demo(const demo_choice& chosen, const streams& to)
{
    const sample_programs programs = find_sample_programs(chosen.programs);
    const demo_run run{programs, fresh_directory(chosen.directory), to};
    write_settings(run);
    serve_clients(run);
    const int reported = show_command(run, {"report", "--brief", "--depth", "2", run.file("trace")});
    const int counted = show_command(run, {"counters", "--by", "operation", run.file(default_data_file)});
    show_ways_on(run);
    return std::max(reported, counted);
}

command_body declare_demo(CLI::App& app)
{
    const auto chosen = std::make_shared<demo_choice>();
    app.add_option("DIR", chosen->directory,
                   "Where the server runs and its files stay; empty or new (default: a new one for temporary "
                   "files)");
    app.add_option("--programs", chosen->programs,
                   "Where the sample programs are (default: beside this program, or in ../libexec/ostrum)");
    return [chosen](const streams& to) { return run_demo(*chosen, to); };
}

} // namespace

const command demo_command{"demo", "A run of the sample server under tracing, for a first look",
                           declare_demo};

} // namespace ostrum_tool
