// The sample server's client.
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "client_commands.h"
#include "qel_platform.h"

namespace {

constexpr const char* usage =
    "usage: catalog_client PORT_FILE load FILE [FALLBACK]      load a package database\n"
    "       catalog_client PORT_FILE query [CONNECTIONS [ROUNDS]]  ask many questions at once\n"
    "       catalog_client PORT_FILE hostile                   send what is no message\n"
    "       catalog_client PORT_FILE show NAME\n"
    "       catalog_client PORT_FILE search name|section|requires PATTERN\n";

uint16_t read_port(const std::string& path)
{
    uint16_t port = 0;
    if (!(std::ifstream(path) >> port))
        throw std::runtime_error("no port number in " + path);
    return port;
}

// False when the words make no command.
bool run(uint16_t port, const std::vector<std::string>& words)
{
    const std::string& command = words.front();
    if (command == "load" && words.size() >= 2)
        catalog::load_catalog(port, {words.begin() + 1, words.end()});
    else if (command == "query" && words.size() <= 3)
        catalog::run_queries(port, words.size() > 1 ? std::stoi(words[1]) : 4,
                             words.size() > 2 ? std::stoi(words[2]) : 200);
    else if (command == "hostile" && words.size() == 1)
        catalog::send_hostile_bytes(port);
    else if (command == "show" && words.size() == 2)
        catalog::show_package(port, words[1]);
    else if (command == "search" && words.size() == 3)
        catalog::show_search(port, words[1], words[2]);
    else
        return false;
    return true;
}

} // namespace

int main(int argc, char** argv)
try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    qel_platform_init();
    if (arguments.size() >= 2 && run(read_port(arguments[0]), {arguments.begin() + 1, arguments.end()}))
        return 0;
    std::fputs(usage, stderr);
    return 2;
} catch (const std::exception& error) {
    std::fprintf(stderr, "catalog_client: %s\n", error.what());
    return 1;
}
