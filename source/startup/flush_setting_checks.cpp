// The rules of the settings that say when trees are written.
#include "startup/setting_checks.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config/lookup.h"
#include "config/setting_text.h"
#include "perf_log/flush/async_flusher.h"
#include "util/diagnostics.h"
#include "util/time_value.h"

namespace ostrum {

namespace {

constexpr int64_t default_flush_frequency_s = 3600;

enum auto_flush_setting : int32_t { flush_off = 0, flush_both = flush_between_ops | flush_inside_ops };

struct period_rule {
    const char* letters; // either of them makes it this unit
    period_unit unit;
    int64_t whole; // the period must be shorter than this and divide it: sixty minutes are no hour
};
// The first row that fits counts: a text with both letters is minutes.
constexpr period_rule period_rules[] = {
    {"mM", period_unit::minutes, 60},
    {"hH", period_unit::hours, 24},
};

bool parse_period(const char* text, settings& out)
{
    for (const period_rule& rule : period_rules) {
        if (strpbrk(text, rule.letters) == nullptr) {
            continue;
        }
        const int64_t length = strtol(text, nullptr, 10);
        if (length < 1 || length >= rule.whole || rule.whole % length != 0) {
            return false;
        }
        out.aggregation_period = static_cast<int32_t>(length);
        out.aggregation_unit = rule.unit;
        return true;
    }
    return false;
}

void report_bad_auto_flush(int32_t value)
{
    // kept: the first line has no end.
    err_print("perf_log_init : ERROR - the 'ostrum_auto_flush' value[%#x](%d) is invalid",
              static_cast<uint32_t>(value), value);
    err_print("perf_log_init : ERROR - auto-flush values are: OFF[%#x] BETWEEN_OPS[%#x] INSIDE_OPS[%#x] "
              "BOTH[%#x]\n",
              flush_off, flush_between_ops, flush_inside_ops, flush_both);
}

// A value above 0. This library is not preloaded: it cannot interrupt an operation to flush inside it.
bool is_valid_auto_flush(int32_t value)
{
    if (value == flush_inside_ops || value == flush_both) {
        err_print("perf_log_init : ERROR - inside-opcode flushing cannot be used in non-preloaded Ostrum "
                  "implementations\n");
        return false;
    }
    if (value != flush_between_ops) {
        report_bad_auto_flush(value);
        return false;
    }
    return true;
}

void show_status_check_frequency(const setting_text& configured, int64_t every_tv)
{
    char seconds[64];
    ostrum_fmt_tv(every_tv, seconds, sizeof(seconds), format_seconds_us);
    char rhythm[96] = "each operation";
    if (every_tv != 0) {
        snprintf(rhythm, sizeof(rhythm), "every %s seconds", seconds);
    }
    debug_print("perf_log_init : ostrum_status_check_frequency[%s](check %s)\n",
                configured ? configured.get() : "", rhythm);
}

} // namespace

bool store_max_log_size(const startup_step& step, settings& out)
{
    out.max_log_size = __perfconf_int(step.key);
    if (debug_on(debug_general)) {
        debug_print("perf_log_init : ostrum_max_log_size[%d](%s)\n", out.max_log_size,
                    out.max_log_size != 0 ? "maximum set" : "no maximum");
    }
    return true;
}

bool store_aggregation_period(const startup_step& step, settings& out)
{
    const setting_text configured = configured_text(step.key);
    const char* text = configured ? configured.get() : "1h"; // set but empty is refused
    if (!parse_period(text, out)) {
        err_print("perf_log_init : ostrum_aggregation_period - invalid value[%s]\n", text);
        return false;
    }
    return true;
}

bool store_flush_frequency(const startup_step& step, settings& out)
{
    const int32_t seconds = __perfconf_int(step.key);
    if (seconds < 0) {
        err_print("perf_log_init : ostrum_flush_frequency - bad value\n");
        return false;
    }
    out.flush_frequency_tv = (seconds != 0 ? seconds : default_flush_frequency_s) * tv_per_s;
    return true;
}

bool store_status_check_frequency(const startup_step& step, settings& out)
{
    const setting_text configured = configured_text(step.key);
    if (has_text(configured)) {
        const int64_t every_tv = ostrum_string_to_tv(configured.get());
        if (every_tv < 0) {
            err_print("perf_log_init : bad value for '%s'[%s] - ignored\n", step.key, configured.get());
        } else {
            out.status_check_tv = every_tv;
        }
    }
    if (debug_on(debug_general)) {
        show_status_check_frequency(configured, out.status_check_tv);
    }
    return true;
}

bool store_auto_flush(const startup_step& step, settings& out)
{
    int32_t value = __perfconf_int(step.key);
    // Kept on purpose: it cannot come up, since a frequency of 0 stands for the default one.
    if (value > 0 && out.flush_frequency_tv <= 0) {
        err_print(
            "perf_log_init : WARNING - the 'ostrum_flush_frequency' is set to 0, 'ostrum_auto_flush' will "
            "not be enabled\n");
        value = flush_off;
    }
    if (value > 0 && !is_valid_auto_flush(value)) {
        return false;
    }
    out.auto_flush = value > 0 ? value : flush_off;
    if (debug_on(debug_general)) {
        debug_print("perf_log_init : ostrum_auto_flush[%#x](%s)\n", static_cast<uint32_t>(out.auto_flush),
                    out.auto_flush != flush_off ? "enabled" : "disabled");
    }
    return true;
}

// A flusher thread that cannot be created has been reported; what is handed over then stays in memory.
bool store_async_flushing(const startup_step& step, settings& out)
{
    out.async_flushing = __perfconf_int(step.key) != 0;
    if (out.async_flushing && !has_flushing_thread(process_flush_record())) {
        perf_initialise_flushing_thread(&process_flush_record());
    }
    return true;
}

} // namespace ostrum
