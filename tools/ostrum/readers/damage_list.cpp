#include "readers/damage_list.h"

#include <algorithm>

namespace ostrum_tool {

void damage_list::add(uint64_t offset, const std::string& what)
{
    ++count;
    if (first.size() < most_kept) {
        first.push_back({offset, what});
    }
}

void damage_list::add(const damage_list& other)
{
    count += other.count;
    first.insert(first.end(), other.first.begin(), other.first.end());
    std::stable_sort(first.begin(), first.end(),
                     [](const damage& a, const damage& b) { return a.offset < b.offset; });
    first.resize(std::min(first.size(), most_kept));
}

} // namespace ostrum_tool
