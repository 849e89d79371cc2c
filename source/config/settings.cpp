#include "config/settings.h"

namespace ostrum {

namespace {
constinit settings the_settings;
}

const settings& configured()
{
    return the_settings;
}

settings& settings_for_startup()
{
    return the_settings;
}

} // namespace ostrum
