#include <stdexcept>

#include "calls.h"
#include "scenarios.h"

namespace ostrum_bench {
namespace {

samples measure_init(const char* name)
{
    const double floor_ns = floor_once();
    int32_t result = 0;
    const double ns = elapsed_ns(CLOCK_MONOTONIC, [&] { result = ostrum_init(); });
    if (result != 0) {
        throw std::runtime_error("ostrum_init failed");
    }
    return {{floor_name, {floor_ns}}, {name, {ns}}};
}

} // namespace

samples measure_init_new_file(int /*repetitions*/)
{
    return measure_init("ostrum_init, data file made");
}

samples measure_init_existing_file(int /*repetitions*/)
{
    return measure_init("ostrum_init, data file there");
}

} // namespace ostrum_bench
