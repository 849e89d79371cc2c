#ifndef OSTRUM_CONFIG_PROGRAM_NAME_H
#define OSTRUM_CONFIG_PROGRAM_NAME_H
#include <cstdint>

extern "C" {
// The calling program's name: the third ':'-separated field of the correlation id, "" when it has
// fewer than three ':'. A name is cut to size - 2 characters, one less than fits (kept).
char* get_program(char* out, int32_t size);
}
#endif
