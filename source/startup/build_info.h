#ifndef OSTRUM_STARTUP_BUILD_INFO_H
#define OSTRUM_STARTUP_BUILD_INFO_H

extern "C" {
// Constant texts about this build; any thread.
const char* __ostrum_get_version(void);
const char* __ostrum_get_build_date(void);
const char* __ostrum_get_build_platform(void); // operating system, kernel release, processor
const char* __ostrum_get_build_compiler(void);
}
#endif
