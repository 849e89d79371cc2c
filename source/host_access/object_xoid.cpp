#include "host_access/object_xoid.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "host_abi/host_fields.h"
#include "host_abi/host_opcodes.h"
#include "host_access/flist.h"
#include "util/text.h"

using namespace ostrum;

namespace {

constexpr int32_t optional = 1;

// How an operation's object is described.
enum class description { type, search, list_text };

description description_of(int32_t opcode)
{
    if (opcode == list_text_opcode) {
        return description::list_text;
    }
    return contains(search_opcodes, opcode) ? description::search : description::type;
}

template <typename T>
T* field(qel_flist_t* list, uint32_t number)
{
    qel_errbuf_t eb{};
    return static_cast<T*>(p_flist_fld_get(list, number, 0, optional, &eb));
}

// A text being built in the caller's buffer.
struct bounded_text {
    char* bytes;
    size_t capacity_bytes;

    void set(const char* text) const { ostrum::copy_text(bytes, capacity_bytes, text); }
    void set_part(const char* text, size_t length) const
    {
        const size_t cut = std::min(length, capacity_bytes - 1);
        memcpy(bytes, text, cut);
        bytes[cut] = '\0';
    }
    void replace_from(size_t at, const char* text) const
    {
        ostrum::copy_text(bytes + at, capacity_bytes - at, text);
    }
    [[nodiscard]] size_t length() const { return strlen(bytes); }
};

// The path that a search without an object names: from "/" in " from /" up to a blank.
void describe_searched_path(const bounded_text& out, const char* search_text)
{
    constexpr char marker[] = " from /";
    const char* found = search_text != nullptr ? strstr(search_text, marker) : nullptr;
    if (found != nullptr) {
        const char* path = found + sizeof(marker) - 2;
        out.set_part(path, strcspn(path, " "));
    }
}

void apply_template(const bounded_text& out, int64_t id, const char* search_template)
{
    if (search_template == nullptr) {
        return;
    }
    if (id >= 1) {
        out.replace_from(out.length(), "/");
        out.replace_from(out.length(), search_template);
    } else if (const char* dollar = strchr(out.bytes, '$')) {
        out.replace_from(static_cast<size_t>(dollar - out.bytes), search_template);
    }
}

void describe_search(const bounded_text& out, qel_flist_t* list, bool has_identifier, int64_t id)
{
    if (has_identifier && id >= 1) {
        snprintf(out.bytes, out.capacity_bytes, "/search[%ld]", id);
    } else if (has_identifier) {
        describe_searched_path(out, field<char>(list, search_text_field));
    }
    apply_template(out, id, field<char>(list, search_template_field));
}

} // namespace

int64_t ostrum_get_db_num(qel_flist_t* list)
{
    const auto* xoid = list != nullptr ? field<qel_xoid_t>(list, xoid_field) : nullptr;
    return xoid != nullptr && qel_xoid_get_db != nullptr ? qel_xoid_get_db(xoid) : 0;
}

int64_t __ostrum_get_object_xoid(int32_t opcode, qel_flist_t* list, int64_t* db, char* text, int32_t text_len)
{
    char unwanted[1];
    const bounded_text out = text != nullptr && text_len > 0
                                 ? bounded_text{text, static_cast<size_t>(text_len)}
                                 : bounded_text{unwanted, sizeof(unwanted)};
    out.set("");
    if (db != nullptr) {
        *db = 0;
    }
    if (list == nullptr) {
        return 0;
    }
    const bool reachable =
        qel_xoid_get_db != nullptr && qel_xoid_get_id != nullptr && qel_xoid_get_type != nullptr;
    const auto* xoid = reachable ? field<qel_xoid_t>(list, xoid_field) : nullptr;
    if (xoid != nullptr && db != nullptr) {
        *db = qel_xoid_get_db(xoid);
    }
    const int64_t id = xoid != nullptr ? qel_xoid_get_id(xoid) : 0;
    switch (description_of(opcode)) {
    case description::search:
        describe_search(out, list, xoid != nullptr, id);
        break;
    case description::list_text:
        out.set(field<char>(list, list_text_field));
        break;
    default:
        if (xoid != nullptr) {
            out.set(qel_xoid_get_type(xoid));
        }
        break;
    }
    return id;
}

char* perf_dbno_to_str(char* text, int32_t text_len, int64_t db_number)
{
    const auto bits = static_cast<uint64_t>(db_number);
    const auto group = [bits](int shift) { return static_cast<int>(static_cast<int16_t>(bits >> shift)); };
    if (text != nullptr && text_len > 0) {
        snprintf(text, static_cast<size_t>(text_len), "%d.%d.%d.%d", static_cast<int>(bits >> 48), group(32),
                 group(16), group(0));
    }
    return text;
}
