#ifndef CATALOG_TRACED_H
#define CATALOG_TRACED_H
// The tracing hooks around operations and functions: started by the constructor, ended on every way out.
// A thread that has chosen a key uses the keyed hooks, any other its own context.
#include <cstdint>
#include <string>

#include "qel_platform.h"

namespace catalog {

// Where a call stands in the source, without the directory: as a default argument, where the caller's call
// stands. (The standard library's own form of it is not there with every compiler.)
struct call_site {
    const char* file;
    int32_t line;

    static constexpr call_site here(const char* path = __builtin_FILE(), int32_t line = __builtin_LINE())
    {
        const char* file = path;
        for (const char* c = path; *c != '\0'; ++c) {
            if (*c == '/')
                file = c + 1;
        }
        return {file, line};
    }
};

// From here on the calling thread traces under (this process, key), until the object goes; then what was
// gathered is flushed and the key's context released. One thread a key.
class trace_key {
public:
    explicit trace_key(int32_t key);
    ~trace_key();
    trace_key(const trace_key&) = delete;
    trace_key& operator=(const trace_key&) = delete;
};

// Says on whose behalf the thread works: "host:pid:program:sequence"; the trace shows the program. A text
// of another form, or with what has no place in a trace record, is replaced by this server's own.
void set_correlation(const std::string& correlation);

class traced_operation {
public:
    // The request must outlive the object.
    traced_operation(uint32_t opcode, const char* name, qel_flist_t* request,
                     call_site where = call_site::here());
    // An operation that nothing has finished ends with the platform's system error.
    ~traced_operation();
    traced_operation(const traced_operation&) = delete;
    traced_operation& operator=(const traced_operation&) = delete;

    void finish(qel_flist_t* reply, const qel_errbuf_t& error, bool from_cache = false);

private:
    uint32_t opcode_;
    const char* name_;
    qel_flist_t* request_;
    call_site where_;
    char object_type_[128] = "";
    int64_t object_id_ = 0;
    int64_t db_ = 0;
    bool open_ = true;
};

// A function that leaves by an exception ends with an error of the database, unless it has said another.
class traced_function {
public:
    explicit traced_function(const char* name, call_site where = call_site::here());
    ~traced_function();
    void failed(const qel_errbuf_t& error) { error_ = error; }
    traced_function(const traced_function&) = delete;
    traced_function& operator=(const traced_function&) = delete;

private:
    const char* name_;
    call_site where_;
    int exceptions_;
    qel_errbuf_t error_{};
};

} // namespace catalog
#endif
