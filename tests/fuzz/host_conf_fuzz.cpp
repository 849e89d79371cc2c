// qel.conf as the library's look-ups see it: against a second, plain reading of the same text, and written
// out again.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <vector>

#include "config/lookup.h"
#include "fuzz/fuzz_target.h"
#include "support/working_dir.h"

namespace {

constexpr size_t most_keys = 8; // the file is read at each look-up

struct entry {
    std::string key, value;
};

std::string trimmed(const std::string& text)
{
    const size_t begin = std::min(text.find_first_not_of(" \t\r\n"), text.size());
    return text.substr(begin, text.find_last_not_of(" \t\r\n") + 1 - begin);
}

std::string unquoted(const std::string& text)
{
    const bool quoted = text.size() > 1 && text.starts_with('"') && text.ends_with('"');
    return quoted ? text.substr(1, text.size() - 2) : text;
}

// The first entries of the section [ostrum], no two of one key.
std::vector<entry> read_plainly(std::string_view text)
{
    std::vector<entry> entries;
    std::string section;
    for (const std::string& raw : fuzz::cut(text, '\n')) {
        const std::string line = trimmed(raw);
        const size_t equals = line.find('=');
        if (line.starts_with('[') && line.ends_with(']') && line.size() > 1) {
            section = trimmed(line.substr(1, line.size() - 2));
        } else if (!line.starts_with('#') && equals != std::string::npos && section == "ostrum") {
            const std::string key = trimmed(line.substr(0, equals));
            const bool is_new = std::none_of(entries.begin(), entries.end(),
                                             [&key](const entry& other) { return other.key == key; });
            if (is_new && entries.size() < most_keys && key.find('\0') == std::string::npos) {
                entries.push_back({key, unquoted(trimmed(line.substr(equals + 1))).c_str()});
            }
        }
    }
    return entries;
}

bool is_whole_number(const std::string& text, long& number)
{
    char* end = nullptr;
    errno = 0;
    number = strtol(text.c_str(), &end, 0);
    return errno == 0 && end != text.c_str() && *end == '\0' && number == static_cast<int32_t>(number);
}

void check_look_ups(const entry& wanted)
{
    char* text = __perfconf_str(wanted.key.c_str());
    fuzz::must(text != nullptr && wanted.value == text, "a key has its value", wanted.key);
    __perfconf_free(&text);
    fuzz::must(text == nullptr, "a text that is released is gone");
    long number = 0;
    if (is_whole_number(wanted.value, number)) {
        fuzz::must(__perfconf_int(wanted.key.c_str()) == number, "a number has its value", wanted.key);
    }
    const bool is_yes = wanted.value == "1" || strcasecmp(wanted.value.c_str(), "y") == 0 ||
                        strcasecmp(wanted.value.c_str(), "yes") == 0;
    fuzz::must(__perfconf_bool(wanted.key.c_str()) == (is_yes ? 1 : 0), "yes is true", wanted.key);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const working_dir dir;
    static const bool linked = [] {
        std::filesystem::create_symlink(fuzz::file_of(""), "qel.conf");
        return unsetenv("QEL_HOME") == 0;
    }();
    const fuzz::nothing_left_behind watch;
    const std::string_view text = fuzz::text_of(data, size);
    const std::vector<entry> entries = read_plainly(text);
    std::string again = "[ostrum]\n";
    fuzz::file_of(text);
    for (const entry& wanted : entries) {
        check_look_ups(wanted);
        again += wanted.key + "=\"" + wanted.value + "\"\n";
    }
    fuzz::file_of(again);
    for (const entry& wanted : entries) {
        check_look_ups(wanted);
    }
    return linked ? 0 : 1;
}
