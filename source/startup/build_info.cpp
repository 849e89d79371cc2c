#include "startup/build_info.h"

const char* __ostrum_get_version()
{
    return OSTRUM_VERSION; // like the platform below, defined by the build for this file
}

// Empty, so that equal sources give equal libraries.
const char* __ostrum_get_build_date()
{
    return "";
}

const char* __ostrum_get_build_platform()
{
    return OSTRUM_BUILD_PLATFORM;
}

// A placeholder, kept on purpose: the banner shows it so.
const char* __ostrum_get_build_compiler()
{
    return "<BUILD_COMPILER>";
}
