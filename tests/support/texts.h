#ifndef OSTRUM_TESTS_SUPPORT_TEXTS_H
#define OSTRUM_TESTS_SUPPORT_TEXTS_H
#include <cstdint>
#include <string>

// How often the part stands in the text.
inline int64_t count_of(const std::string& text, const std::string& part)
{
    int64_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}
#endif
