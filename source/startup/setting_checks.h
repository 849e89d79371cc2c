#ifndef OSTRUM_STARTUP_SETTING_CHECKS_H
#define OSTRUM_STARTUP_SETTING_CHECKS_H
// One function per rule: reads the row's setting, checks it, stores it. False, after the diagnostic
// lines of the rule, for a value that the library must not start with.
#include "startup/startup_steps.h"

namespace ostrum {

// Rules that several settings share; the value goes to the row's target, if it has one.
bool store_number(const startup_step& step, settings& out);
bool store_not_negative(const startup_step& step, settings& out);
bool store_zero_or_one(const startup_step& step, settings& out);

// Files.
bool store_log_directory(const startup_step& step, settings& out);
bool load_opcode_buckets(const startup_step& step, settings& out);
bool store_single_file(const startup_step& step, settings& out);
bool store_single_file_limit(const startup_step& step, settings& out); // reads nothing unless single_file
bool store_data_file_name(const startup_step& step, settings& out);
bool store_data_file_reset(const startup_step& step, settings& out);

// When trees are flushed.
bool store_max_log_size(const startup_step& step, settings& out);
bool store_aggregation_period(const startup_step& step, settings& out);
bool store_flush_frequency(const startup_step& step, settings& out);
bool store_status_check_frequency(const startup_step& step, settings& out);
bool store_auto_flush(const startup_step& step, settings& out); // after the flush frequency
bool store_async_flushing(const startup_step& step, settings& out);

// What is recorded.
bool store_error_counter_level(const startup_step& step, settings& out);
bool refuse_alarms(const startup_step& step, settings& out);
bool refuse_alarm_config_file(const startup_step& step, settings& out);
bool check_group_transactions(const startup_step& step, settings& out);
bool show_trace_object_type(const startup_step& step, settings& out);
bool store_process_data(const startup_step& step, settings& out);

} // namespace ostrum
#endif
