#ifndef OSTRUM_STARTUP_KEYLESS_STEPS_H
#define OSTRUM_STARTUP_KEYLESS_STEPS_H
// The start-up steps that read no setting of their own.
#include "startup/startup_steps.h"

namespace ostrum {

bool announce_logging(const startup_step& step, settings& out);
bool hand_over_timed_flush(const startup_step& step, settings& out);
bool create_context_slots(const startup_step& step, settings& out); // thread-specific key, fork handler
bool open_data_file(const startup_step& step, settings& out);
bool prepare_context_list(const startup_step& step, settings& out);
bool register_exit_handler(const startup_step& step, settings& out); // a failure is reported only

} // namespace ostrum
#endif
