#include "traced.h"

#include <algorithm>
#include <exception>
#include <iterator>

#include <unistd.h>

#include "field_list.h"
#include "fields.h"
#include "ostrum.h"

namespace catalog {
namespace {

constexpr uint32_t served_from_cache = 0x4;
constexpr int32_t no_key = -1;
constexpr const char* own_correlation = "localhost:0:catalog_server:0";

// What the thread's hooks need to know; set by trace_key and set_correlation.
thread_local int32_t current_key = no_key;
thread_local std::string current_program = "catalog_server";

// Texts from outside end up in trace records: comma-separated lines, which know no quoting.
bool fits_into_record(char c)
{
    return c > ' ' && c <= '~' && c != ',';
}

std::string third_field(const std::string& text)
{
    const size_t second = text.find(':', text.find(':') + 1);
    return text.substr(second + 1, text.find(':', second + 1) - second - 1);
}

} // namespace

trace_key::trace_key(int32_t key)
{
    current_key = key;
    ostrum_get_liptr_by_key(getpid(), key);
}

trace_key::~trace_key()
{
    ostrum_release_liptr_by_key(getpid(), current_key);
    current_key = no_key;
}

void set_correlation(const std::string& correlation)
{
    const bool usable = std::count(correlation.begin(), correlation.end(), ':') >= 3 &&
                        std::all_of(correlation.begin(), correlation.end(), fits_into_record);
    const std::string text = usable ? correlation : own_correlation;
    current_program = third_field(text);
    qellog_set_correlation(text.c_str());
}

traced_operation::traced_operation(uint32_t opcode, const char* name, qel_flist_t* request, call_site where)
    : opcode_(opcode), name_(name), request_(request), where_(where)
{
    object_id_ = ostrum_get_object_xoid(static_cast<int32_t>(opcode), request, &db_, object_type_,
                                        static_cast<int32_t>(sizeof object_type_));
    std::replace_if(
        object_type_, std::find(object_type_, std::end(object_type_), '\0'),
        [](char c) { return !fits_into_record(c); }, '_');
    qel_errbuf_t no_error{};
    if (current_key == no_key)
        ostrum_log_start_op(opcode_, name_, 0, request_, where_.file, where_.line, object_type_, object_id_,
                            db_, &no_error);
    else
        ostrum_log_start_op_key(getpid(), current_key, opcode_, name_, 0, request_, where_.file, where_.line,
                                object_type_, object_id_, db_, &no_error);
}

traced_operation::~traced_operation()
{
    if (open_)
        finish(nullptr, make_error(QEL_ERR_BAD_VALUE, QEL_CLASS_SYSTEM, loc_operation));
}

void traced_operation::finish(qel_flist_t* reply, const qel_errbuf_t& error, bool from_cache)
{
    qel_errbuf_t buffer = error;
    const uint32_t flags = from_cache ? served_from_cache : 0;
    if (current_key == no_key)
        ostrum_log_end_op(opcode_, name_, 0, request_, reply, flags, where_.file, where_.line, object_type_,
                          object_id_, db_, &buffer);
    else
        ostrum_log_end_op_key(getpid(), current_key, opcode_, name_, 0, request_, reply, flags, where_.file,
                              where_.line, object_type_, object_id_, db_, &buffer);
    open_ = false;
}

traced_function::traced_function(const char* name, call_site where)
    : name_(name), where_(where), exceptions_(std::uncaught_exceptions())
{
    if (current_key == no_key)
        ostrum_log_start_fn(0, name_, 0, current_program.c_str(), where_.file, where_.line, "",
                            database_number);
    else
        ostrum_log_start_fn_key(getpid(), current_key, 0, name_, 0, current_program.c_str(), where_.file,
                                where_.line, "", database_number);
}

traced_function::~traced_function()
{
    if (error_.errnum == 0 && std::uncaught_exceptions() > exceptions_)
        error_ = make_error(err_store, QEL_CLASS_SYSTEM, loc_store);
    const int32_t failed = error_.errnum != 0 ? 1 : 0;
    const auto errnum = static_cast<int32_t>(error_.errnum);
    const auto err_class = static_cast<int32_t>(error_.err_class);
    const auto location = static_cast<int32_t>(error_.location);
    if (current_key == no_key)
        ostrum_log_end_fn(0, name_, 0, failed, current_program.c_str(), where_.file, where_.line, "",
                          database_number, errnum, err_class, location);
    else
        ostrum_log_end_fn_key(getpid(), current_key, 0, name_, 0, failed, current_program.c_str(),
                              where_.file, where_.line, "", database_number, errnum, err_class, location);
}

} // namespace catalog
