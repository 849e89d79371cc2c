#include "startup/startup_steps.h"

#include "startup/keyless_steps.h"
#include "startup/setting_checks.h"

namespace ostrum {

namespace {

// The order is what operators see in the debug output, and later rows use what earlier ones have set.
constexpr startup_step startup_steps[] = {
    {nullptr, announce_logging},
    {"ostrum_logdir", store_log_directory},
    {"ostrum_flist_log_to_stdout", store_number, &settings::flist_log_to_stdout},
    {"ostrum_max_log_size", store_max_log_size},
    {"ostrum_opcode_bucket_file", load_opcode_buckets},
    {"ostrum_aggregation_period", store_aggregation_period},
    {"ostrum_flush_frequency", store_flush_frequency},
    {"ostrum_collect_cpu_usage", store_not_negative, &settings::collect_cpu_levels},
    {"ostrum_log_single_file", store_single_file},
    {"ostrum_data_file", store_data_file_name},
    {"ostrum_data_file_reset", store_data_file_reset},
    {"ostrum_log_max_single_file_size", store_single_file_limit},
    {"ostrum_status_check_frequency", store_status_check_frequency},
    {"ostrum_auto_flush", store_auto_flush},
    {nullptr, hand_over_timed_flush}, // no effect in this build: nothing calls it back
    {"ostrum_error_counter_level", store_error_counter_level},
    {"ostrum_alarm", refuse_alarms},
    {"ostrum_alarm_config_file", refuse_alarm_config_file},
    {"ostrum_alarm_log_at_limit", store_zero_or_one, &settings::alarm_log_at_limit},
    {"ostrum_group_transactions", check_group_transactions},
    {"ostrum_log_correlation_in_call_stack", store_zero_or_one, &settings::log_correlation_in_call_stack},
    {nullptr, create_context_slots},
    {nullptr, open_data_file},
    {"ostrum_async_flushing", store_async_flushing},
    {"ostrum_trace_object_type", show_trace_object_type},
    {nullptr, prepare_context_list},
    {nullptr, register_exit_handler},
    {"ostrum_get_process_data", store_process_data},
};

} // namespace

bool run_startup_steps(settings& out)
{
    for (const startup_step& step : startup_steps) {
        if (!step.run(step, out)) {
            return false;
        }
    }
    return true;
}

} // namespace ostrum
