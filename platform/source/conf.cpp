// The configuration service. The file is read at each request: settings are asked for at start-up, and
// there is no stale copy that a forked child or a changed directory could meet.
#include "conf.h"

#include "error.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace qel {

namespace {

// The first of the places that holds a file; empty when none does.
std::string conf_path()
{
    std::vector<std::string> places{"./qel.conf", "/etc/qel.conf"};
    if (const char* home = getenv("QEL_HOME")) {
        places.push_back(std::string(home) + "/config/qel.conf");
    }
    for (const std::string& place : places) {
        std::error_code ignored;
        const auto kind = std::filesystem::status(place, ignored).type();
        if (kind == std::filesystem::file_type::regular) {
            return place;
        }
    }
    return {};
}

int32_t parse_int(const std::string& text, int32_t& number)
{
    char* end = nullptr;
    errno = 0;
    const long parsed = strtol(text.c_str(), &end, 0);
    if (errno != 0 || end == text.c_str() || *end != '\0' || parsed < INT32_MIN || parsed > INT32_MAX) {
        return QEL_ERR_BAD_VALUE;
    }
    number = static_cast<int32_t>(parsed);
    return QEL_ERR_NONE;
}

// A malloc'ed copy of the bytes, which the caller gives to qel_free.
int32_t hand_out(const void* bytes, size_t count, void** value)
{
    *value = malloc(count);
    if (*value == nullptr) {
        return QEL_ERR_NO_MEM;
    }
    memcpy(*value, bytes, count);
    return QEL_ERR_NONE;
}

int32_t look_up(const std::string& program, const std::string& key, int32_t type, void** value)
{
    const conf_entries entries = conf_section(program);
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [&key](const auto& entry) { return entry.first == key; });
    if (found == entries.end()) {
        return QEL_ERR_NOT_FOUND;
    }
    const std::string& text = found->second;
    if (type == QEL_TYPE_STR) {
        return hand_out(text.c_str(), text.size() + 1, value);
    }
    int32_t number = 0;
    const int32_t outcome = parse_int(text, number);
    return outcome == QEL_ERR_NONE ? hand_out(&number, sizeof(number), value) : outcome;
}

} // namespace

conf_entries conf_section(const std::string& program)
{
    std::ifstream file(conf_path());
    return entries_of(file, program);
}

} // namespace qel

void qel_conf(const char* program, const char* key, int32_t type, void** value, int32_t* err)
{
    if (value == nullptr || err == nullptr) {
        return;
    }
    *value = nullptr;
    if (program == nullptr || key == nullptr) {
        *err = QEL_ERR_BAD_ARG;
        return;
    }
    if (type != QEL_TYPE_INT && type != QEL_TYPE_STR) {
        *err = QEL_ERR_BAD_TYPE;
        return;
    }
    qel_errbuf_t memory{};
    *err = qel::guarded(&memory, QEL_LOC_CONF, [&] { return qel::look_up(program, key, type, value); });
    if (memory.errnum != 0) {
        *err = static_cast<int32_t>(memory.errnum);
    }
}

void qel_free(void* p)
{
    free(p);
}
