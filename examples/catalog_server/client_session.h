#ifndef CATALOG_CLIENT_SESSION_H
#define CATALOG_CLIENT_SESSION_H
// The client's side of one connection.
#include <cstdint>
#include <stdexcept>
#include <string>

#include "connection.h"
#include "field_list.h"

namespace catalog {

// The server did not do what it should; the client ends with it.
struct unexpected_reply : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class client_session {
public:
    // `program` names the caller in the server's traces.
    client_session(uint16_t port, const std::string& program);

    // Sends the request and gives the reply, whatever it says.
    list_ptr ask(qel_flist_t* request);
    // The same for a reply that must say `errnum` (0: success); anything else is unexpected_reply.
    list_ptr expect(uint32_t errnum, qel_flist_t* request);
    [[nodiscard]] int64_t requests() const { return requests_; }
    [[nodiscard]] int64_t errors() const { return errors_; } // replies that said an error, as expected

private:
    unique_fd socket_;
    std::string correlation_; // up to the sequence number
    int64_t requests_ = 0;
    int64_t errors_ = 0;
};

list_ptr named_request(uint32_t opcode, const std::string& name);
list_ptr search_request(const std::string& attribute, const std::string& pattern, int32_t limit);

} // namespace catalog
#endif
