#ifndef CATALOG_DATA_MANAGER_H
#define CATALOG_DATA_MANAGER_H
// The data manager process: takes requests from connection-manager workers over a Unix socket and runs
// them against the database on a pool of threads, each with its own store and its own tracing key.
#include <string>

#include "connection.h"

namespace catalog {

// Serves the listener until SIGTERM; requests under way are answered first. Returns the exit status.
int run_data_manager(unique_fd listener, const std::string& database, int threads);

} // namespace catalog
#endif
