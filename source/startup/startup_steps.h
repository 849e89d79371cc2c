#ifndef OSTRUM_STARTUP_STARTUP_STEPS_H
#define OSTRUM_STARTUP_STARTUP_STEPS_H
// The set-up of logging as an ordered table: a row per setting, and the steps between them that no
// setting belongs to.
#include "config/settings.h"

namespace ostrum {

struct startup_step {
    const char* key;                                      // null: no setting is read
    bool (*run)(const startup_step& step, settings& out); // false, after its diagnostic lines: stop here
    int32_t settings::*target = nullptr;                  // of rules that several settings share
};

// Runs the rows in order up to the first that fails; what the rows before it have set stays.
bool run_startup_steps(settings& out);

} // namespace ostrum
#endif
