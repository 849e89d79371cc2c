// The text form of field lists: a line a field,
//     0x5000045 STR      [0] "lib*"
// ordered by field number and element id; what an array element or a sub-list holds follows below it,
// indented by four. Texts are quoted and escaped, so that a field never takes more than its line.
#include "error.h"
#include "flist.h"
#include "published.h"
#include "text_contract.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <vector>

#include <unistd.h>

namespace qel {

namespace {

constexpr size_t indent_columns = 4;
constexpr const char* mask = "****";

constinit published<std::vector<uint32_t>> masked_fields;

bool is_masked(uint32_t fld)
{
    const std::vector<uint32_t>* fields = masked_fields.get();
    return fields != nullptr && std::binary_search(fields->begin(), fields->end(), fld);
}

const char* type_name(uint32_t type)
{
    switch (type) {
    case QEL_TYPE_INT:
        return "INT";
    case QEL_TYPE_STR:
        return "STR";
    case QEL_TYPE_XOID:
        return "XOID";
    case QEL_TYPE_TSTAMP:
        return "TSTAMP";
    case QEL_TYPE_ARRAY:
        return "ARRAY";
    case QEL_TYPE_SUBLIST:
        return "SUBLIST";
    default:
        return "DECIMAL";
    }
}

__attribute__((format(printf, 1, 2))) std::string formatted(const char* format, ...)
{
    char text[128];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    return text;
}

std::string escaped(char c)
{
    switch (c) {
    case '\n':
        return "\\n";
    case '\t':
        return "\\t";
    case '"':
        return "\\\"";
    case '\\':
        return "\\\\";
    default:
        break;
    }
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f ? formatted("\\x%02x", byte) : std::string(1, c);
}

std::string quoted(const std::string& text)
{
    std::string result = "\"";
    for (const char c : text) {
        result += escaped(c);
    }
    return result + "\"";
}

// What stands on the field's own line.
struct line_text {
    std::string operator()(int32_t number) const { return " " + std::to_string(number); }
    std::string operator()(int64_t seconds) const { return formatted(" (%ld)", seconds); }
    std::string operator()(const std::string& text) const { return " " + quoted(text); }
    std::string operator()(const nmu_decimal& number) const { return " " + decimal_text(number); }
    std::string operator()(const list_ptr& /*below*/) const { return ""; }
    std::string operator()(const qel_xoid& x) const
    {
        const auto db = static_cast<uint64_t>(x.db);
        const auto group = [db](int shift) { return static_cast<int16_t>(db >> shift); };
        return formatted(" %d.%d.%d.%d ", group(48), group(32), group(16), group(0)) + x.type +
               formatted(" %ld", x.id);
    }
};

void append(std::string& out, const qel_flist& list, size_t depth)
{
    for (const auto& [fld, elements] : list.fields) {
        for (const auto& [elem_id, held] : elements) {
            out.append(depth * indent_columns, ' ');
            out += formatted("%#x %-8s [%d]", fld, type_name(QEL_FLD_TYPE(fld)), elem_id);
            const bool masked = is_masked(fld);
            out += masked ? std::string(" ") + mask : std::visit(line_text(), held);
            out += '\n';
            if (const auto* below = std::get_if<list_ptr>(&held); below != nullptr && !masked) {
                append(out, **below, depth + 1);
            }
        }
    }
}

std::string masked_text(const qel_flist& list)
{
    std::string text;
    append(text, list, 0);
    return text;
}

// One write, so that lists of several threads do not mix and nothing stays buffered over a fork.
void write_out(int fd, const std::string& text)
{
    if (write(fd, text.data(), text.size()) < 0) {
        return; // there is nowhere to report it
    }
}

} // namespace

} // namespace qel

void qel_mask_fields(const uint32_t* fields, size_t n)
{
    qel::guarded(nullptr, QEL_LOC_FLIST, [&] {
        std::vector<uint32_t> table(fields, fields + (fields != nullptr ? n : 0));
        std::sort(table.begin(), table.end());
        qel::masked_fields.replace(std::move(table));
    });
}

void qel_flist_to_str_masked(qel_flist_t* fl, char** text, int32_t* len, qel_errbuf_t* eb)
{
    if (fl == nullptr || text == nullptr || len == nullptr) {
        qel::raise(eb, {QEL_LOC_FLIST, QEL_ERR_BAD_ARG});
        return;
    }
    qel::guarded(eb, QEL_LOC_FLIST, [&] {
        if (const uint32_t errnum = qel::hand_out_text(qel::masked_text(*fl), text, len)) {
            qel::raise(eb, {QEL_LOC_FLIST, errnum});
        }
    });
}

void qel_log_flist(qel_flist_t* fl, int32_t level, const char* prefix, const char* file, int32_t line)
{
    qel::guarded(nullptr, QEL_LOC_FLIST, [&] {
        std::string text = level == 1 ? "E " : "D ";
        text += std::string(file != nullptr ? file : "") + ":" + std::to_string(line) + " ";
        text += prefix != nullptr ? prefix : "";
        text += fl != nullptr ? "\n" + qel::masked_text(*fl) : "no list\n";
        qel::write_out(STDERR_FILENO, text);
    });
}

void qel_flist_print(const qel_flist_t* fl)
{
    qel::guarded(nullptr, QEL_LOC_FLIST, [&] {
        fflush(stdout);
        qel::write_out(STDOUT_FILENO, fl != nullptr ? qel::masked_text(*fl) : "no list\n");
    });
}
