// The rules that several settings share, and those of the settings that say what is recorded.
#include "startup/setting_checks.h"

#include "config/lookup.h"
#include "config/setting_text.h"
#include "process_metrics/sampler.h"
#include "util/diagnostics.h"

namespace ostrum {

namespace {

constexpr int32_t all_error_counter_bits =
    error_by_dbno | error_by_program | error_by_opcode | error_by_class | error_by_location | error_by_errnum;
constexpr int32_t all_process_data_bits = process_data_on | process_data_register;

bool read_zero_or_one(const startup_step& step, int32_t& value)
{
    value = __perfconf_int(step.key);
    if (value != 0 && value != 1) {
        err_print("perf_log_init : %s must be 0 or 1\n", step.key);
        return false;
    }
    return true;
}

const char* yes_or_no(int32_t value, int32_t bit)
{
    return (value & bit) != 0 ? "YES" : "NO";
}

void report_bad_error_counter_level(int32_t level)
{
    // kept: the first line has no end.
    err_print("perf_log_init : ERROR - the 'ostrum_error_counter_level' value[%#x](%d) is invalid",
              static_cast<uint32_t>(level), level);
    err_print("perf_log_init : error-counter flag values are: DBNO[%#x] PROGRAM[%#x] OPCODE[%#x] CLASS[%#x] "
              "LOCATION[%#x] ERRNUM[%#x]\n",
              error_by_dbno, error_by_program, error_by_opcode, error_by_class, error_by_location,
              error_by_errnum);
}

void show_error_counter_level(int32_t level)
{
    debug_print(
        "perf_log_init : ostrum_error_counter_level[%#x] => DBNO[%s] PROGRAM[%s] OPCODE[%s] CLASS[%s] "
        "LOCATION[%s] ERRNUM[%s]\n",
        static_cast<uint32_t>(level), yes_or_no(level, error_by_dbno), yes_or_no(level, error_by_program),
        yes_or_no(level, error_by_opcode), yes_or_no(level, error_by_class),
        yes_or_no(level, error_by_location), yes_or_no(level, error_by_errnum));
}

void report_bad_process_data(int32_t value)
{
    // kept: the first line has no end.
    err_print("perf_log_init : ERROR - the 'ostrum_get_process_data' value[%#x](%d) is invalid",
              static_cast<uint32_t>(value), value);
    err_print("perf_log_init : process-data flag values are: OFF[%#x]/ON[%#x] REGISTER[%#x]\n", 0U,
              process_data_on, process_data_register);
}

} // namespace

bool store_number(const startup_step& step, settings& out)
{
    out.*step.target = __perfconf_int(step.key);
    return true;
}

bool store_not_negative(const startup_step& step, settings& out)
{
    const int32_t value = __perfconf_int(step.key);
    if (value < 0) {
        err_print("perf_log_init : %s - bad value\n", step.key);
        return false;
    }
    out.*step.target = value;
    return true;
}

bool store_zero_or_one(const startup_step& step, settings& out)
{
    int32_t value = 0;
    if (!read_zero_or_one(step, value)) {
        return false;
    }
    out.*step.target = value;
    return true;
}

bool store_error_counter_level(const startup_step& step, settings& out)
{
    const int32_t level = __perfconf_int(step.key);
    if (level > 0 && (level & all_error_counter_bits) == 0) {
        report_bad_error_counter_level(level);
        return false;
    }
    out.error_counter_level = level > 0 ? level : 0;
    if (debug_on(debug_general)) {
        show_error_counter_level(out.error_counter_level);
    }
    return true;
}

bool refuse_alarms(const startup_step& step, settings&)
{
    if (!has_text(configured_text(step.key))) {
        return true;
    }
    err_print("perf_log_init : ERROR - alarms cannot be used in non-preloaded Ostrum implementations - unset "
              "'ostrum_alarm'\n");
    return false;
}

bool refuse_alarm_config_file(const startup_step& step, settings&)
{
    if (!has_text(configured_text(step.key))) {
        return true;
    }
    // kept: the closing quote is missing.
    err_print("perf_log_init : ERROR - alarms cannot be used in non-preloaded Ostrum implementations - unset "
              "'ostrum_alarm_config_file\n");
    return false;
}

// Checked and shown; nothing reads it.
bool check_group_transactions(const startup_step& step, settings&)
{
    int32_t value = 0;
    if (!read_zero_or_one(step, value)) {
        return false;
    }
    if (debug_on(debug_general)) {
        debug_print("perf_log_init : ostrum_group_transactions[%d](%s)\n", value, value != 0 ? "on" : "off");
    }
    return true;
}

// Shown; nothing reads it.
bool show_trace_object_type(const startup_step& step, settings&)
{
    const bool on = __perfconf_int(step.key) != 0;
    if (debug_on(debug_general)) {
        debug_print("perf_log_init : ostrum_trace_object_type[%#x](%s)\n", on ? 1U : 0U, on ? "on" : "off");
    }
    return true;
}

bool store_process_data(const startup_step& step, settings& out)
{
    const int32_t value = __perfconf_int(step.key);
    if (value > 0 && (value & all_process_data_bits) == 0) {
        report_bad_process_data(value);
        return false;
    }
    out.process_data = value > 0 ? value : 0;
    install_sampler_when_asked();
    if (debug_on(debug_general)) {
        debug_print("perf_log_init : ostrum_get_process_data[%#x] => ON[%s] REGISTER[%s]\n",
                    static_cast<uint32_t>(out.process_data), yes_or_no(out.process_data, process_data_on),
                    yes_or_no(out.process_data, process_data_register));
    }
    return true;
}

} // namespace ostrum
