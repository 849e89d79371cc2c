#include "field_list.h"

#include "fields.h"

namespace catalog {
namespace {

void check(const qel_errbuf_t& error, const char* step)
{
    if (error.errnum != QEL_ERR_NONE)
        throw platform_error(std::string(step) + " failed with platform error " +
                             std::to_string(error.errnum));
}

const void* find_value(qel_flist_t* list, uint32_t field, int32_t elem_id)
{
    qel_errbuf_t error{};
    const void* value = qeli_flist_get(list, field, elem_id, 1, &error);
    check(error, "reading a field");
    return value;
}

void store_copy(qel_flist_t* list, uint32_t field, const void* value)
{
    qel_errbuf_t error{};
    qeli_flist_set(list, field, 0, value, &error);
    check(error, "storing a field");
}

int32_t element_count(qel_flist_t* list, uint32_t field)
{
    qel_errbuf_t error{};
    const int32_t count = qel_flist_elem_count(list, field, &error);
    check(error, "counting elements");
    return count;
}

uint32_t error_word(qel_flist_t* reply, uint32_t field)
{
    return static_cast<uint32_t>(get_int(reply, field).value_or(0));
}

} // namespace

list_ptr make_list()
{
    qel_errbuf_t error{};
    list_ptr list{qel_flist_create(&error)};
    check(error, "creating a field list");
    return list;
}

void set_text(qel_flist_t* list, uint32_t field, const std::string& text)
{
    store_copy(list, field, text.c_str());
}

void set_int(qel_flist_t* list, uint32_t field, int32_t value)
{
    store_copy(list, field, &value);
}

void set_object(qel_flist_t* list, uint32_t field, const object_id& object)
{
    qel_xoid_t* identifier = qel_xoid_create(object.db, object.type.c_str(), object.id);
    if (identifier == nullptr)
        throw platform_error("creating an object identifier failed");
    qel_errbuf_t error{};
    qeli_flist_put(list, field, 0, identifier, &error);
    check(error, "storing an object identifier");
}

qel_flist_t* add_element(qel_flist_t* list, uint32_t field)
{
    qel_errbuf_t error{};
    qel_flist_t* element = qel_flist_elem_add(list, field, element_count(list, field), &error);
    check(error, "adding an element");
    return element;
}

void add_element(qel_flist_t* list, uint32_t field, list_ptr element)
{
    qel_errbuf_t error{};
    qeli_flist_put(list, field, element_count(list, field), element.release(), &error);
    check(error, "adding an element");
}

std::optional<std::string> get_text(qel_flist_t* list, uint32_t field)
{
    const void* value = find_value(list, field, 0);
    return value ? std::optional<std::string>(static_cast<const char*>(value)) : std::nullopt;
}

std::optional<int32_t> get_int(qel_flist_t* list, uint32_t field)
{
    const void* value = find_value(list, field, 0);
    return value ? std::optional<int32_t>(*static_cast<const int32_t*>(value)) : std::nullopt;
}

std::optional<object_id> get_object(qel_flist_t* list, uint32_t field)
{
    const auto* value = static_cast<const qel_xoid_t*>(find_value(list, field, 0));
    if (value == nullptr)
        return std::nullopt;
    const char* type = qel_xoid_get_type(value);
    return object_id{qel_xoid_get_db(value), qel_xoid_get_id(value), type ? type : ""};
}

std::vector<qel_flist_t*> elements(qel_flist_t* list, uint32_t field)
{
    std::vector<qel_flist_t*> found;
    const int32_t count = element_count(list, field);
    for (int32_t id = 0; id < count; ++id) {
        qel_errbuf_t error{};
        if (auto* element = static_cast<qel_flist_t*>(qeli_flist_get(list, field, id, 1, &error)))
            found.push_back(element);
        check(error, "reading an element");
    }
    return found;
}

qel_errbuf_t make_error(uint32_t number, uint32_t err_class, uint32_t location, uint32_t field)
{
    qel_errbuf_t error{};
    error.location = location;
    error.err_class = err_class;
    error.errnum = number;
    error.field = field;
    return error;
}

void set_error(qel_flist_t* reply, const qel_errbuf_t& error, const std::string& text)
{
    set_int(reply, fld_errnum, static_cast<int32_t>(error.errnum));
    set_int(reply, fld_err_class, static_cast<int32_t>(error.err_class));
    set_int(reply, fld_err_location, static_cast<int32_t>(error.location));
    set_text(reply, fld_err_text, text);
}

qel_errbuf_t get_error(qel_flist_t* reply)
{
    return make_error(error_word(reply, fld_errnum), error_word(reply, fld_err_class),
                      error_word(reply, fld_err_location));
}

list_ptr make_request(uint32_t opcode, int64_t id)
{
    list_ptr request = make_list();
    set_int(request.get(), fld_opcode, static_cast<int32_t>(opcode));
    set_object(request.get(), fld_object, {database_number, id, package_type});
    return request;
}

} // namespace catalog
