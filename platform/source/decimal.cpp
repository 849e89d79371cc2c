// Decimal numbers. One made from a double has the shortest digits that give this double again, so that
// 2.675 is rounded as people read it and not as its binary neighbour.
#include "decimal.h"

#include "error.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

namespace {

constexpr size_t fixed_text_bytes = 1200; // the smallest doubles have more than a thousand digits

bool all_zero(const std::string& digits)
{
    return std::all_of(digits.begin(), digits.end(), [](char c) { return c == '0'; });
}

nmu_decimal parse(const std::string& text)
{
    nmu_decimal d;
    d.negative = text.front() == '-';
    d.digits = text.substr(d.negative ? 1 : 0);
    const size_t point = d.digits.find('.');
    if (point != std::string::npos) {
        d.scale = d.digits.size() - point - 1;
        d.digits.erase(point, 1);
    }
    d.negative = d.negative && !all_zero(d.digits);
    return d;
}

// Whether a number that loses these last digits grows in size by one unit of the last kept one.
bool rounds_away(const nmu_decimal& kept, const std::string& dropped, int32_t mode)
{
    const bool exact = all_zero(dropped);
    const bool above_half = dropped.front() > '5' || (dropped.front() == '5' && !all_zero(dropped.substr(1)));
    const bool half = dropped.front() == '5' && !above_half;
    switch (mode) {
    case NMU_ROUND_UP:
        return !exact;
    case NMU_ROUND_CEILING:
        return !exact && !kept.negative;
    case NMU_ROUND_FLOOR:
        return !exact && kept.negative;
    case NMU_ROUND_NEAREST:
        return above_half || half;
    case NMU_ROUND_EVEN:
        return above_half || (half && (kept.digits.back() - '0') % 2 != 0);
    default: // NMU_ROUND_DOWN
        return false;
    }
}

void add_one_unit(std::string& digits)
{
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
        if (*digit != '9') {
            ++*digit;
            return;
        }
        *digit = '0';
    }
    digits.insert(digits.begin(), '1');
}

void round_to(nmu_decimal& d, size_t places, int32_t mode)
{
    if (d.scale <= places) {
        return;
    }
    const size_t kept = d.digits.size() - (d.scale - places);
    const std::string dropped = d.digits.substr(kept);
    d.digits.resize(kept);
    d.scale = places;
    if (rounds_away(d, dropped, mode)) {
        add_one_unit(d.digits);
    }
    d.negative = d.negative && !all_zero(d.digits);
}

} // namespace

std::string qel::decimal_text(const nmu_decimal& d)
{
    std::string text = d.digits;
    if (d.scale > 0) {
        text.insert(text.size() - d.scale, ".");
    }
    return d.negative ? "-" + text : text;
}

nmu_decimal_t* nmu_decimal_from_double(double v, qel_errbuf_t* eb)
{
    return qel::guarded(eb, QEL_LOC_NUMBER, [&]() -> nmu_decimal* {
        char text[fixed_text_bytes];
        const auto [end, failure] = std::to_chars(text, text + sizeof(text), v, std::chars_format::fixed);
        if (!std::isfinite(v) || failure != std::errc()) {
            qel::raise(eb, {QEL_LOC_NUMBER, QEL_ERR_BAD_VALUE});
            return nullptr;
        }
        return new nmu_decimal(parse(std::string(text, end)));
    });
}

void nmu_decimal_round_assign(nmu_decimal_t* d, int32_t places, int32_t mode, qel_errbuf_t* eb)
{
    if (d == nullptr || places < 0 || mode < NMU_ROUND_UP || mode > NMU_ROUND_EVEN) {
        qel::raise(eb, {QEL_LOC_NUMBER, QEL_ERR_BAD_ARG});
        return;
    }
    qel::guarded(eb, QEL_LOC_NUMBER, [&] { round_to(*d, static_cast<size_t>(places), mode); });
}

void nmu_decimal_destroy(nmu_decimal_t* d)
{
    delete d;
}

double nmu_decimal_to_double(const nmu_decimal_t* d)
{
    return qel::guarded(nullptr, QEL_LOC_NUMBER, [&] {
        double value = 0;
        const std::string text = d != nullptr ? qel::decimal_text(*d) : "0";
        std::from_chars(text.data(), text.data() + text.size(), value);
        return value;
    });
}

char* nmu_decimal_to_str(const nmu_decimal_t* d)
{
    return qel::guarded(nullptr, QEL_LOC_NUMBER,
                        [&] { return d != nullptr ? strdup(qel::decimal_text(*d).c_str()) : nullptr; });
}
