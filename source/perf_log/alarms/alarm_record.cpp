#include "perf_log/alarms/alarm_record.h"

#include "host_access/flist.h"
#include "util/diagnostics.h"
#include "util/resources.h"
#include "util/text.h"
#include "util/time_value.h"

namespace ostrum {

namespace {

// The host fills the caller's buffer, whose last byte stays free for the terminator.
char* text_within(qel_flist_t* list, size_t max_bytes)
{
    heap_ptr<char> text = heap_zeroed<char>(max_bytes + 1);
    if (!text) {
        err_print("perf_flist_str : out of memory\n");
        return nullptr;
    }
    qel_errbuf_t eb{};
    char* out = text.get();
    auto length = static_cast<int32_t>(max_bytes);
    p_flist_to_str(list, &out, &length, &eb);
    if (eb.errnum != 0) {
        copy_text(text.get(), max_bytes, "Too big to print\n");
    }
    return text.release();
}

char* whole_text(qel_flist_t* list)
{
    const host_ptr<char> shown = flist_text(list);
    if (!shown) {
        return nullptr;
    }
    heap_ptr<char> text = heap_text(shown.get());
    if (!text) {
        err_print("perf_flist_str : out of memory\n");
    }
    return text.release();
}

void debug_level(const alarm_record& alarm, const alarm_level& level)
{
    debug_print("perf_async_debug_alarm : OPCODE STACK - DEPTH[%d] of [%d]\n", level.level + 1,
                alarm.level_count);
    debug_print("perf_async_debug_alarm :   Opcode       : [%d][%s]\n", level.opcode, level.opname);
    debug_print("perf_async_debug_alarm :   Flags        : [%#x]\n", level.flags);
    debug_print("perf_async_debug_alarm :   File/line    : [%s][%d]\n", level.fname, level.line);
    debug_print("perf_async_debug_alarm :   Start        : [%s]\n",
                formatted_time(level.start_tv, format_year_first_us).text);
    debug_print("perf_async_debug_alarm :   Sequence     : [%d/%d/%d](LVL/TOP/SEQ)\n", level.level + 1,
                alarm.top_sequence, level.sequence);
    debug_print("perf_async_debug_alarm :   Input flist  :\n%s\n",
                level.in_flist != nullptr ? level.in_flist : "");
}

} // namespace

alarm_record* perf_create_alarm_object(int32_t level_count)
{
    const size_t bytes = sizeof(alarm_record) + sizeof(alarm_level) * static_cast<size_t>(level_count);
    auto* alarm = static_cast<alarm_record*>(os::allocate_zeroed(bytes));
    if (alarm == nullptr) {
        err_print("perf_create_alarm_object : failed allocating %d bytes\n", static_cast<int>(bytes));
        return nullptr;
    }
    static_assert(sizeof(alarm_record) % alignof(alarm_level) == 0);
    alarm->levels = reinterpret_cast<alarm_level*>(alarm + 1);
    alarm->level_count = level_count;
    return alarm;
}

void release_alarm(alarm_record* alarm)
{
    if (alarm == nullptr) {
        return;
    }
    for (int32_t i = 0; i < alarm->level_count; ++i) {
        os::release(alarm->levels[i].in_flist);
    }
    os::release(alarm);
}

const char* type_text(const alarm_record& alarm)
{
    return alarm.type == alarm_type::interim ? "interim" : "final";
}

} // namespace ostrum

using namespace ostrum;

char* perf_flist_str(qel_flist_t* list, int32_t max_bytes)
{
    if (list == nullptr) {
        return nullptr;
    }
    return max_bytes > 0 ? text_within(list, static_cast<size_t>(max_bytes)) : whole_text(list);
}

void perf_async_debug_alarm(const alarm_record* alarm)
{
    if (!debug_on(debug_detail)) {
        return;
    }
    debug_print("perf_async_debug_alarm : ALARM NODE[%#x]\n", low_address_bits(alarm));
    debug_print("perf_async_debug_alarm :   Alarm time     : [%s]\n",
                formatted_time(alarm->alarm_tv, format_year_first_us).text);
    debug_print("perf_async_debug_alarm :   Total elapsed  : [%s]\n",
                formatted_time(alarm->elapsed_tv, format_seconds_ns).text);
    debug_print("perf_async_debug_alarm :   Alarm type     : [%s]\n", type_text(*alarm));
    debug_print("perf_async_debug_alarm :   Alarm limit    : [%s]\n",
                formatted_time(alarm->limit->threshold_tv, format_seconds_ns).text);
    debug_print("perf_async_debug_alarm :   Alarm severity : [%s]\n", alarm->limit->severity);
    debug_print("perf_async_debug_alarm :   Correlation iD : [%s]\n", alarm->correlation_id); // spelling kept
    for (int32_t i = 0; i < alarm->level_count; ++i) {
        debug_level(*alarm, alarm->levels[i]);
    }
}
