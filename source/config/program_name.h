#ifndef OSTRUM_CONFIG_PROGRAM_NAME_H
#define OSTRUM_CONFIG_PROGRAM_NAME_H
#include <cstdint>

extern "C" {
// The calling program's name: the third ':'-separated field of the correlation id, "" when it has
// fewer than three ':'. A name is cut to size - 2 characters, one less than fits (kept).
char* get_program(char* out, int32_t size);
}

namespace ostrum {

// The correlation id that a program name was taken from; a longer one is never remembered whole. Zeroed: the
// empty one, whose program is the empty text.
struct known_correlation {
    char id[256];
};

// get_program where the last id is at hand: as a rule it is the same again and there is nothing to do. The
// host's service is called without putting a cancellation off, which would cost two atomic steps at every
// outermost start: the caller's frames must clean up when the thread ends in it.
void refresh_program(char* program, int32_t size, known_correlation& known);

} // namespace ostrum
#endif
