#ifndef QEL_DECIMAL_H
#define QEL_DECIMAL_H
#include <string>

#include "qel_platform.h"

// The number is digits * 10^-scale, with the sign apart; zero is never negative.
struct nmu_decimal {
    bool negative = false;
    std::string digits = "0"; // at least scale + 1 of them: "005" with scale 2 is 0.05
    size_t scale = 0;
};

namespace qel {

std::string decimal_text(const nmu_decimal& d);

} // namespace qel
#endif
