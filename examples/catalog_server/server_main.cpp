// The sample transaction server: see README.md beside this file.
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include <getopt.h>
#include <sys/stat.h>

#include "connection_manager.h"
#include "ostrum.h"
#include "process_signals.h"
#include "qel_platform.h"

namespace {

constexpr const char* usage = "usage: catalog_server [--run-dir DIR] [--port N] [--port-file FILE]\n"
                              "                      [--database FILE] [--threads N] [--workers N]\n"
                              "Files lie in the run directory (default: the current one).\n";

constexpr option long_options[] = {
    {"run-dir", required_argument, nullptr, 'r'},
    {"port", required_argument, nullptr, 'p'},
    {"port-file", required_argument, nullptr, 'f'},
    {"database", required_argument, nullptr, 'd'},
    {"threads", required_argument, nullptr, 't'},
    {"workers", required_argument, nullptr, 'w'},
    {nullptr, 0, nullptr, 0},
};

// A whole number between the two, or the end of the program.
int number_between(std::string_view text, int lowest, int highest)
{
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < lowest || value > highest) {
        std::fprintf(stderr, "catalog_server: not a number from %d to %d: %s\n", lowest, highest,
                     text.data());
        std::exit(2);
    }
    return value;
}

void enter(const char* directory)
{
    std::error_code error;
    std::filesystem::current_path(directory, error);
    if (error) {
        std::fprintf(stderr, "catalog_server: %s: %s\n", directory, error.message().c_str());
        std::exit(2);
    }
}

catalog::server_options read_options(int argc, char** argv)
{
    catalog::server_options options;
    for (int found = 0; (found = getopt_long(argc, argv, "", long_options, nullptr)) != -1;) {
        switch (found) {
        case 'r':
            enter(optarg);
            break;
        case 'p':
            options.port = static_cast<uint16_t>(number_between(optarg, 0, 65535));
            break;
        case 'f':
            options.port_file = optarg;
            break;
        case 'd':
            options.database = optarg;
            break;
        case 't':
            options.threads = number_between(optarg, 1, 64);
            break;
        case 'w':
            options.max_workers = number_between(optarg, 1, 256);
            break;
        default:
            std::fputs(usage, stderr);
            std::exit(2);
        }
    }
    if (optind < argc) {
        std::fputs(usage, stderr);
        std::exit(2);
    }
    return options;
}

} // namespace

int main(int argc, char** argv)
{
    const catalog::server_options options = read_options(argc, argv);
    umask(077); // the data manager's socket is for this user alone
    catalog::block_signals();
    qel_platform_init();
    // Before the first fork, so that all processes of the server start from the same data file.
    if (ostrum_init() != 0)
        std::fprintf(stderr, "catalog_server: tracing is off, see the messages above\n");
    return catalog::run_connection_manager(options);
}
