#ifndef CATALOG_CLIENT_COMMANDS_H
#define CATALOG_CLIENT_COMMANDS_H
// What the client can be asked to do. Each prints its own line of results and throws when the server does
// not do what it should.
#include <cstdint>
#include <string>
#include <vector>

namespace catalog {

// Loads the first of the files that holds a real database (100 installed packages), else the last: all
// packages first, then what they require of one another, in batches of one transaction each.
void load_catalog(uint16_t port, const std::vector<std::string>& files);

// Asks a mixture of questions over several connections at once, wrong ones among them.
void run_queries(uint16_t port, int connections, int rounds);

// Sends what is no message at all, and checks that the server answers the next client as before.
void send_hostile_bytes(uint16_t port);

void show_package(uint16_t port, const std::string& name);
void show_search(uint16_t port, const std::string& attribute, const std::string& pattern);

} // namespace catalog
#endif
