#include "output/record_columns.h"

#include <algorithm>
#include <cmath>

namespace ostrum_tool {
namespace {

bool is_less(const cell& a, const cell& b)
{
    if (a.holds() == cell::content::text && b.holds() == cell::content::text) {
        return a.text() < b.text();
    }
    return number_in(a) < number_in(b);
}

} // namespace

size_t find_column(std::span<const column> columns, const std::string& name)
{
    const auto found = std::find_if(columns.begin(), columns.end(), [&](const column& each) {
        return each.key == name || each.title == name;
    });
    return static_cast<size_t>(found - columns.begin());
}

void sort_rows(std::vector<std::vector<cell>>& rows, size_t by, bool descending)
{
    std::stable_sort(rows.begin(), rows.end(), [&](const auto& a, const auto& b) {
        return descending ? is_less(b[by], a[by]) : is_less(a[by], b[by]);
    });
}

double number_in(const cell& value)
{
    switch (value.holds()) {
    case cell::content::number:
        return static_cast<double>(value.number());
    case cell::content::unsigned_number:
        return static_cast<double>(value.unsigned_number());
    case cell::content::real:
        return value.real();
    default:
        return -HUGE_VAL;
    }
}

} // namespace ostrum_tool
