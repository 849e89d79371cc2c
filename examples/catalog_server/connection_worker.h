#ifndef CATALOG_CONNECTION_WORKER_H
#define CATALOG_CONNECTION_WORKER_H
// A connection-manager worker: the process that serves one client. It checks each request, passes it to
// the data manager, and waits idle in between.
#include <string>

#include "connection.h"

namespace catalog {

// Until the client closes or SIGTERM comes. Returns the exit status.
int run_connection_worker(unique_fd client, const std::string& data_manager_path);

} // namespace catalog
#endif
