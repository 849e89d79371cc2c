#include <chrono>
#include <stdexcept>
#include <string>

#include <ostrum.h>

#include "scenarios.h"

namespace ostrum_bench {
namespace {

samples measure_init(const char* row)
{
    const double floor_ns = floor_once();
    const auto start = std::chrono::steady_clock::now();
    const int32_t result = ostrum_init();
    const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
    if (result != 0) {
        throw std::runtime_error("ostrum_init failed");
    }
    return {{floor_row, {floor_ns}}, {row, {elapsed.count()}}};
}

} // namespace

samples measure_init_new_file()
{
    return measure_init("ostrum_init, data file made");
}

samples measure_init_existing_file()
{
    return measure_init("ostrum_init, data file there");
}

} // namespace ostrum_bench
