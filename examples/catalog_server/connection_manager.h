#ifndef CATALOG_CONNECTION_MANAGER_H
#define CATALOG_CONNECTION_MANAGER_H
// The server's first process: starts the data manager, takes connections on loopback TCP and forks one
// worker for each, and takes everything down again in order.
#include <cstdint>
#include <string>

namespace catalog {

struct server_options {
    uint16_t port = 0;                      // 0: a free one
    std::string port_file = "catalog.port"; // written when the server is ready
    std::string database = "catalog.db";
    int threads = 4;      // of the data manager
    int max_workers = 32; // further clients wait in the listener's queue
};

// Runs until SIGTERM or SIGINT (0), or until the data manager is lost or a part did not end well (1).
int run_connection_manager(const server_options& options);

} // namespace catalog
#endif
