#ifndef OSTRUM_CONFIG_LOOKUP_H
#define OSTRUM_CONFIG_LOOKUP_H
// One setting by name: the host's configuration (program "ostrum") first, then the environment variable
// of the upper-cased name. The host is asked only where a configuration file is present: "./qel.conf" or
// "/etc/qel.conf". No state; any thread.
#include <cstdint>

extern "C" {
// A heap copy for __perfconf_free; null when set nowhere or memory is short. An environment variable that
// is set to nothing gives the empty text.
char* __perfconf_str(const char* key);
// 0 when unset, or after one diagnostic line when the environment's text is not a number. A file
// "$QEL_HOME/config/qel.conf" also counts here (and only here: kept).
int32_t __perfconf_int(const char* key);
int32_t __perfconf_bool(const char* key); // 1 for "yes", "y" (any case) and "1"
void __perfconf_free(char** text);        // sets it to null; null allowed
int32_t file_exists(const char* path);    // 1 not a directory, -1 directory, 0 cannot be examined
}
#endif
