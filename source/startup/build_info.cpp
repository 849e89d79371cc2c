#include "startup/build_info.h"

const char* __ostrum_get_version()
{
    return "2.0.13";
}

// Empty, so that equal sources give equal libraries.
const char* __ostrum_get_build_date()
{
    return "";
}

const char* __ostrum_get_build_platform()
{
    return OSTRUM_BUILD_PLATFORM; // defined by the build for this file
}

// kept: a placeholder that was never filled in; readers of the banner know it so.
const char* __ostrum_get_build_compiler()
{
    return "<BUILD_COMPILER>";
}
