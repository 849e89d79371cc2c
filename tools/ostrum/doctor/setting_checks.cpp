// The rules of the settings, as docs/settings.md has them.
#include <algorithm>
#include <cstdlib>
#include <optional>
#include <set>

#include <ostrum_util.h>
#include <unistd.h>

#include "doctor/findings.h"
#include "output/value_text.h"

namespace ostrum_tool {
namespace {

using problem = std::optional<finding>;

problem refused(const std::string& reason)
{
    return finding{severity::wrong, reason + ": logging will be disabled", ""};
}

problem fine(const setting_value& /*value*/)
{
    return {};
}

problem is_zero_or_one(const setting_value& value)
{
    return value.number == 0 || value.number == 1 ? problem{} : refused("must be 0 or 1");
}

problem is_not_negative(const setting_value& value)
{
    return value.number >= 0 ? problem{} : refused("must not be below 0");
}

problem is_auto_flush(const setting_value& value)
{
    return value.number <= 1 ? problem{} : refused("only 0 and 1 can be used");
}

problem has_error_bits(const setting_value& value)
{
    return value.number <= 0 || (value.number & 0x3F) != 0 ? problem{} : refused("has none of the bits 0x3f");
}

problem has_process_bits(const setting_value& value)
{
    if (value.number > 0 && (value.number & 3) == 0) {
        return refused("has none of the bits 1 and 2");
    }
    return value.number > 0 && (value.number & 1) == 0
               ? problem({severity::warning, "without bit 1 it does nothing", "use 1 or 3"})
               : problem{};
}

problem is_unset(const setting_value& value)
{
    return value.text.empty() ? problem{} : refused("alarms cannot be used, so it must be unset");
}

problem is_period(const setting_value& value)
{
    struct unit {
        const char* letters;
        long whole;
    };
    for (const unit& each : {unit{"mM", 60}, unit{"hH", 24}}) {
        if (value.text.find_first_of(each.letters) != std::string::npos) {
            const long length = std::strtol(value.text.c_str(), nullptr, 10);
            const bool divides = length >= 1 && length < each.whole && each.whole % length == 0;
            return divides ? problem{} : refused("does not divide the hour or the day");
        }
    }
    return refused("names neither minutes nor hours");
}

problem is_time_text(const setting_value& value)
{
    // The library's own reading, which says on standard error what is wrong with the text.
    return ostrum_string_to_tv(value.text.c_str()) >= 0
               ? problem{}
               : problem({severity::warning, "is no time, and ignored", "use seconds, such as 0.25"});
}

problem is_data_file_name(const setting_value& value)
{
    return value.text.size() <= 1022 ? problem{} : refused("is longer than 1022 characters");
}

problem switches_no_alarms_on(const setting_value& value)
{
    return value.number > 0 ? problem({severity::warning, "has no effect: alarms are refused", ""})
                            : problem{};
}

struct setting_rule {
    const char* key;
    bool is_number;
    problem (*check)(const setting_value& value); // of a value that is set
};
constexpr setting_rule rules[] = {
    {"ostrum_debug", true, fine},
    {"ostrum_lock_method", true, is_zero_or_one},
    {"ostrum_logdir", false, fine}, // the directories have a check of their own
    {"ostrum_flist_log_to_stdout", true, fine},
    {"ostrum_max_log_size", true, fine},
    {"ostrum_opcode_bucket_file", false, fine},
    {"ostrum_aggregation_period", false, is_period},
    {"ostrum_flush_frequency", true, is_not_negative},
    {"ostrum_collect_cpu_usage", true, is_not_negative},
    {"ostrum_log_single_file", false, fine},
    {"ostrum_data_file", false, is_data_file_name},
    {"ostrum_data_file_reset", false, fine},
    {"ostrum_log_max_single_file_size", true, fine},
    {"ostrum_status_check_frequency", false, is_time_text},
    {"ostrum_auto_flush", true, is_auto_flush},
    {"ostrum_error_counter_level", true, has_error_bits},
    {"ostrum_alarm", false, is_unset},
    {"ostrum_alarm_config_file", false, is_unset},
    {"ostrum_alarm_log_at_limit", true, is_zero_or_one},
    {"ostrum_group_transactions", true, is_zero_or_one},
    {"ostrum_log_correlation_in_call_stack", true, is_zero_or_one},
    {"ostrum_async_flushing", true, fine},
    {"ostrum_trace_object_type", true, fine},
    {"ostrum_get_process_data", true, has_process_bits},
    {"ostrum_var_time", true, fine},
    {"ostrum_var_flist", true, fine},
    {"ostrum_var_alarm", true, switches_no_alarms_on},
    {"ostrum_var_trace_opcodes", false, fine},
};

problem problem_of(const setting_rule& rule, const setting_value& value)
{
    if (!value.is_set) {
        return {};
    }
    if (!value.is_number) {
        return finding{severity::warning, "is no number, and counts as unset", ""};
    }
    return rule.check(value);
}

void check_values(const settings_source& source, finding_list& findings)
{
    for (const setting_rule& rule : rules) {
        const setting_value value = rule.is_number ? source.number_of(rule.key) : source.text_of(rule.key);
        if (auto found = problem_of(rule, value)) {
            found->what = source.who() + ": " + rule.key + " \"" + value.text + "\" (" + value.from + ") " +
                          found->what;
            findings.push_back(std::move(*found));
        }
    }
}

void check_names(const settings_source& source, finding_list& findings)
{
    for (const std::string& key : source.keys()) {
        if (std::none_of(std::begin(rules), std::end(rules),
                         [&](const setting_rule& rule) { return key == rule.key; })) {
            findings.push_back(
                {severity::warning, source.who() + ": " + key + " is no setting", "misspelt?"});
        }
    }
}

void check_bucket_file(const settings_source& source, finding_list& findings)
{
    const std::string path = source.text_of("ostrum_opcode_bucket_file").text;
    if (!path.empty() && ::access(source.resolved(path).c_str(), R_OK) != 0) {
        findings.push_back({severity::warning,
                            source.who() + ": ostrum_opcode_bucket_file \"" + path +
                                "\" cannot be read: there will be no buckets",
                            ""});
    }
}

} // namespace

void check_settings(const patient& subject, finding_list& findings)
{
    std::set<int32_t> methods;
    for (const settings_source& source : subject.settings) {
        check_values(source, findings);
        check_names(source, findings);
        check_bucket_file(source, findings);
        methods.insert(source.number_of("ostrum_lock_method").number);
    }
    if (methods.size() > 1) {
        findings.push_back(
            {severity::wrong,
             "ostrum_lock_method differs between the processes: they do not exclude one another",
             "see \"Lock method\" in docs/settings.md"});
    }
}

} // namespace ostrum_tool
