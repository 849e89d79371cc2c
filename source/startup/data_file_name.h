#ifndef OSTRUM_STARTUP_DATA_FILE_NAME_H
#define OSTRUM_STARTUP_DATA_FILE_NAME_H
#include "config/settings.h"

namespace ostrum {

// Writes the template with "%p" replaced by the process id, "%t" by the host's virtual time in seconds
// and "%T" by that time as local time, "%Y%m%d%H%M%S"; all else stays as it is. False, after one
// diagnostic line, when the name is longer than 1022 characters or the time cannot be broken down.
bool build_data_file_name(const char* name_template, char (&out)[path_bytes]);

} // namespace ostrum
#endif
