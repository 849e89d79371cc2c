#ifndef OSTRUM_CONFIG_SETTING_TEXT_H
#define OSTRUM_CONFIG_SETTING_TEXT_H
#include <memory>

#include "config/lookup.h"

namespace ostrum {

struct free_setting {
    void operator()(char* text) const { __perfconf_free(&text); }
};

// The configured text of a key; null when it is set nowhere, which is not the same as "".
using setting_text = std::unique_ptr<char, free_setting>;

inline setting_text configured_text(const char* key)
{
    return setting_text{__perfconf_str(key)};
}

inline bool has_text(const setting_text& text)
{
    return text && *text != '\0';
}

} // namespace ostrum
#endif
