#ifndef CATALOG_FIELD_LIST_H
#define CATALOG_FIELD_LIST_H
// The platform's field lists with owners and C++ values. Every function throws platform_error when the
// platform reports an error (out of memory, as a rule); an absent field is no error.
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "qel_platform.h"

namespace catalog {

struct platform_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct list_deleter {
    void operator()(qel_flist_t* list) const noexcept
    {
        qel_errbuf_t ignored{};
        qel_flist_destroy(list, &ignored);
    }
};
using list_ptr = std::unique_ptr<qel_flist_t, list_deleter>;

struct object_id {
    int64_t db = 0;
    int64_t id = 0; // 0: not known yet
    std::string type;
};

list_ptr make_list();
void set_text(qel_flist_t* list, uint32_t field, const std::string& text);
void set_int(qel_flist_t* list, uint32_t field, int32_t value);
void set_object(qel_flist_t* list, uint32_t field, const object_id& object);
// An empty element at the end of an array field; borrowed.
qel_flist_t* add_element(qel_flist_t* list, uint32_t field);
void add_element(qel_flist_t* list, uint32_t field, list_ptr element);

std::optional<std::string> get_text(qel_flist_t* list, uint32_t field);
std::optional<int32_t> get_int(qel_flist_t* list, uint32_t field);
std::optional<object_id> get_object(qel_flist_t* list, uint32_t field);
// The elements of an array field in order, borrowed. Ours are numbered from 0 without gaps.
std::vector<qel_flist_t*> elements(qel_flist_t* list, uint32_t field);

// A filled error buffer.
qel_errbuf_t make_error(uint32_t number, uint32_t err_class, uint32_t location, uint32_t field = 0);
// A reply's error travels as fields of its own; a reply without them is a success.
void set_error(qel_flist_t* reply, const qel_errbuf_t& error, const std::string& text);
qel_errbuf_t get_error(qel_flist_t* reply);

// A request about packages: the operation, and an object identifier with its number still open.
list_ptr make_request(uint32_t opcode, int64_t id = 0);

} // namespace catalog
#endif
