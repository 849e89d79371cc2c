#include "data_file/errors.h"

#include "data_file/locks.h"
#include "data_file/table_access.h"
#include "util/diagnostics.h"
#include "util/errno_keeper.h"
#include "util/resources.h"

namespace ostrum {

namespace {

struct error_key {
    int64_t dbno;
    uint64_t opcode;
    uint64_t err_class;
    uint64_t location;
    uint64_t errnum;
    const char* opname;
    const char* program;
};

// What an add did, for the debug line that is written after the lock is released.
struct add_result {
    error_entry* entry = nullptr; // null: table full, or no lock
    size_t inserted_index = 0;
    uint64_t errcnt = 0;
    bool inserted = false;
};

bool matches(const error_entry& entry, const error_key& key)
{
    return entry.dbno == key.dbno && entry.opcode == key.opcode && entry.err_class == key.err_class &&
           entry.location == key.location && entry.errnum == key.errnum &&
           holds_text(entry.opname, key.opname) && holds_text(entry.program, key.program);
}

// Under the table lock, with room left.
error_entry& insert(data_file_image& image, size_t index, const error_key& key, int64_t errcnt)
{
    error_entry& entry = image.errors[index];
    entry.dbno = key.dbno;
    entry.opcode = key.opcode;
    store_text(entry.opname, key.opname);
    store_text(entry.program, key.program);
    entry.err_class = key.err_class;
    entry.location = key.location;
    entry.errnum = key.errnum;
    store_total(entry.errcnt, static_cast<uint64_t>(errcnt));
    publish_count(image.error_count, index + 1);
    return entry;
}

add_result find_or_insert(rt_info& handle, const error_key& key, int64_t errcnt)
{
    const data_file_guard table(&handle, DATA_FILE_LOCK_TABLES);
    if (!table) {
        return {};
    }
    const auto used = used_entries(handle.image->errors, handle.image->error_count);
    const auto found = std::find_if(used.begin(), used.end(),
                                    [&key](const error_entry& entry) { return matches(entry, key); });
    if (found != used.end()) {
        rt_error_update(&*found, errcnt);
        return {&*found, 0, found->errcnt, false};
    }
    if (used.size() >= max_errors) {
        return {};
    }
    error_entry& entry = insert(*handle.image, used.size(), key, errcnt);
    return {&entry, used.size(), entry.errcnt, true};
}

void debug_add(const error_key& key, int64_t errcnt)
{
    debug_print(
        "rt_error_add : adding errors for dbno[%ld] opcode[%d](%s) program[%s] errclass[%d] errloc[%d] "
        "err[%d] errcnt[%d]\n",
        key.dbno, static_cast<int>(key.opcode), key.opname, key.program, static_cast<int>(key.err_class),
        static_cast<int>(key.location), static_cast<int>(key.errnum), static_cast<int>(errcnt));
}

void debug_result(const add_result& result)
{
    if (result.inserted) {
        debug_print("rt_error_add : inserted new counter at index[%d]\n",
                    static_cast<int>(result.inserted_index));
    } else if (result.entry != nullptr) {
        debug_print("rt_error_add : updated counter to errcnt[%d]\n", static_cast<int>(result.errcnt));
    }
}

struct error_copies {
    heap_ptr<error_entry> entries; // null: none in use, or memory is short
    size_t count = 0;              // of the entries in use
};

error_copies copy_entries(rt_info& handle, bool reset)
{
    const data_file_guard table(&handle, DATA_FILE_LOCK_TABLES);
    const auto used = used_entries(handle.image->errors, handle.image->error_count);
    error_copies copies{used.empty() ? nullptr : heap_zeroed<error_entry>(used.size()), used.size()};
    for (size_t i = 0; copies.entries && i < used.size(); ++i) {
        error_entry& copy = copies.entries.get()[i];
        copy = used[i];
        terminate_text(copy.opname);
        terminate_text(copy.program);
        if (table && reset) {
            rt_error_reset(&used[i]);
        }
    }
    return copies;
}

} // namespace

} // namespace ostrum

using namespace ostrum;

error_entry* rt_error_add(rt_info* handle, int64_t dbno, int32_t opcode, const char* opname,
                          const char* program, uint32_t err_class, uint32_t location, uint32_t errnum,
                          int64_t errcnt)
{
    if (handle == nullptr) {
        return nullptr;
    }
    const error_key key{dbno,
                        static_cast<uint32_t>(opcode),
                        err_class,
                        location,
                        errnum,
                        text_or_empty(opname),
                        text_or_empty(program)};
    if (debug_on(debug_fine)) {
        debug_add(key, errcnt);
    }
    const add_result result = find_or_insert(*handle, key, errcnt);
    if (debug_on(debug_fine)) {
        debug_result(result);
    }
    return result.entry;
}

void rt_error_update(error_entry* entry, int64_t n)
{
    if (entry != nullptr) {
        add_to_total(entry->errcnt, n);
    }
}

void rt_error_reset(error_entry* entry)
{
    if (entry != nullptr) {
        store_total(entry->errcnt, 0);
    }
}

void rt_errors_reset(rt_info* handle)
{
    const data_file_guard table(handle, DATA_FILE_LOCK_TABLES);
    if (!table) {
        return;
    }
    for (error_entry& entry : used_entries(handle->image->errors, handle->image->error_count)) {
        rt_error_reset(&entry);
    }
}

error_entry* rt_errors_copy(rt_info* handle, int32_t reset, int32_t* count)
{
    report_count(count, 0);
    if (handle == nullptr) {
        return nullptr;
    }
    const errno_keeper keeper;
    error_copies copies = copy_entries(*handle, reset != 0);
    if (!copies.entries) {
        if (copies.count != 0) {
            err_print("rt_errors_copy: out of memory for %d bytes", // kept: no line end
                      static_cast<int>(copies.count * sizeof(error_entry)));
        }
        return nullptr;
    }
    report_count(count, copies.count);
    return copies.entries.release();
}
