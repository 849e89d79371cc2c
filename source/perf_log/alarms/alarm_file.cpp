#include "perf_log/alarms/alarm_file.h"

#include <cerrno>
#include <cstring>

#include "config/settings.h"
#include "data_file/locks.h"
#include "host_access/correlation.h"
#include "perf_log/aggregation/file_names.h"
#include "util/append_buffer.h"
#include "util/append_file.h"
#include "util/clock_checks.h"
#include "util/diagnostics.h"
#include "util/time_value.h"

using namespace ostrum;

namespace {

bool is_tagged(const alarm_record& alarm)
{
    return (alarm.limit->flags & alarm_tagged) != 0;
}

bool logs_flists(const alarm_record& alarm)
{
    return (alarm.limit->flags & alarm_log_flist) != 0;
}

// ---- the two forms ----

// Texts go in as they are, not escaped (kept on purpose: part of the format).
void add_tagged_level(append_buffer& out, const alarm_record& alarm, int32_t index)
{
    const alarm_level& level = alarm.levels[index];
    out.add_formatted("  <opcode id=\"%d\" name=\"%s\" level=\"%d\">\n", level.opcode, level.opname, index);
    out.add_formatted("    <start_t>%s</start_t>\n", formatted_time(level.start_tv, format_seconds_ns).text);
    out.add_formatted("    <start_time>%s</start_time>\n",
                      formatted_time(level.start_tv, format_year_first_us).text);
    out.add_formatted("    <filename>%s</filename>\n", index == 0 ? "NAP" : level.fname);
    out.add_formatted("    <lineno>%d</lineno>\n", level.line);
    if (logs_flists(alarm)) {
        out.add_text("    <input_flist>");
        out.add_text(level.in_flist);
        out.add_text("</input_flist>\n");
    }
    out.add_text("  </opcode>\n");
}

// The writing thread's correlation id, not the stored one (kept on purpose).
void add_tagged_form(append_buffer& out, const alarm_record& alarm, int64_t write_tv)
{
    out.add_formatted("<alarm type=\"%s\" alarm_t=\"%s\" alarm_time=\"%s\" elapsed=\"%s\" threshold=\"%s\" "
                      "severity=\"%s\">\n",
                      type_text(alarm), formatted_time(write_tv, format_seconds_ns).text,
                      formatted_time(write_tv, format_day_first_us).text,
                      formatted_time(alarm.elapsed_tv, format_seconds_ns).text,
                      formatted_time(alarm.limit->threshold_tv, format_seconds_ns).text,
                      alarm.limit->severity);
    out.add_text("  <correlation_id>");
    out.add_text(perf_get_correlation_id());
    out.add_text("</correlation_id>\n");
    out.add_formatted("  <opcode_seq>%d</opcode_seq>\n", alarm.top_sequence);
    for (int32_t i = 0; i < alarm.level_count; ++i) {
        add_tagged_level(out, alarm, i);
    }
    out.add_text("</alarm>\n");
}

void add_plain_level(append_buffer& out, const alarm_record& alarm, int32_t index)
{
    const alarm_level& level = alarm.levels[index];
    out.add_formatted("OPCODE(%d)[%s] STARTED_AT[%s] FLAGS[%#x] FILENAME[%s] LINENO[%d] "
                      "LVL/TOP/SEQ[%03d/%010d/%010d]\n",
                      level.opcode, level.opname, formatted_time(level.start_tv, format_year_first_us).text,
                      level.flags, level.fname, level.line, index + 1, alarm.top_sequence, level.sequence);
    if (logs_flists(alarm)) {
        out.add_text("INPUT_FLIST:\n");
        out.add_text(level.in_flist);
    }
}

void add_plain_form(append_buffer& out, const alarm_record& alarm, int64_t write_tv)
{
    const int64_t threshold_tv = alarm.limit->threshold_tv;
    out.add_formatted(
        "=== ALARM_AT[%s] TYPE[%s] ELAPSED[%s] > S[%s] MS[%d] SEVERITY[%s] CORRELATION_ID[%s]\n",
        formatted_time(write_tv, format_year_first_us).text, type_text(alarm),
        formatted_time(alarm.elapsed_tv, format_seconds_ns).text,
        formatted_time(threshold_tv, format_seconds_ns).text, static_cast<int>(threshold_tv / tv_per_ms),
        alarm.limit->severity, alarm.correlation_id);
    for (int32_t i = 0; i < alarm.level_count; ++i) {
        add_plain_level(out, alarm, i);
    }
}

// ---- the file ----

// A path that is too long is cut and used all the same (kept).
void build_path(char (&path)[path_bytes], const alarm_record& alarm)
{
    const char* extension = is_tagged(alarm) ? tagged_alarm_extension : plain_alarm_extension;
    const period_texts period{alarm.start_text, alarm.end_text};
    const bool named = configured().single_file
                           ? shared_path(path, period, extension)
                           : own_path(path, static_cast<int32_t>(alarm.pid), alarm.tid, period, extension);
    if (!named) {
        err_print("perf_alarm_persist : fpath overflow[%s]\n", path);
    }
}

unique_fd open_alarm_file(const alarm_record& alarm)
{
    char path[path_bytes];
    build_path(path, alarm);
    unique_fd file = open_for_appending(path);
    if (!file) {
        err_print("perf_alarm_persist : failed opening alarm file[%s] pid[%d] tid[%lu]\n", path,
                  static_cast<int>(alarm.pid), alarm.tid);
    }
    return file;
}

// One write for the whole record: threads and processes that share the file do not mix. Returns its
// length in bytes, 0 when it could not be written.
int64_t append_record(int fd, const alarm_record& alarm, int64_t write_tv)
{
    append_buffer text(fd);
    (is_tagged(alarm) ? add_tagged_form : add_plain_form)(text, alarm, write_tv);
    if (!text.finish()) {
        err_print("perf_alarm_persist : failed writing alarm - errno[%d](%s)\n", errno, strerror(errno));
        return 0;
    }
    return text.bytes_added();
}

int64_t append_to_shared_file(const alarm_record& alarm, int64_t write_tv)
{
    // Also without the lock: one write is whole by itself.
    const data_file_guard guard(__ostrum_get_data_file_handle(), DATA_FILE_LOCK_ALARM);
    const unique_fd file = open_alarm_file(alarm);
    return file ? append_record(file.get(), alarm, write_tv) : 0;
}

int64_t append_to_own_file(unique_fd* kept, const alarm_record& alarm, bool close, int64_t write_tv)
{
    unique_fd opened;
    unique_fd& file = kept != nullptr ? *kept : opened;
    if (!file) {
        file = open_alarm_file(alarm);
    }
    const int64_t length = file ? append_record(file.get(), alarm, write_tv) : 0;
    if (close) {
        file.reset();
    }
    return length;
}

} // namespace

void perf_alarm_persist(unique_fd* file, const alarm_record* alarm, int32_t close)
{
    const int64_t write_tv = os::realtime_ns();
    const int64_t length = configured().single_file ? append_to_shared_file(*alarm, write_tv)
                                                    : append_to_own_file(file, *alarm, close != 0, write_tv);
    if (length > 0 && debug_on(debug_general)) {
        debug_print("perf_alarm_persist : pid[%d] tid[%lu] write time[%s] alarm_size[%d]\n",
                    static_cast<int>(alarm->pid), alarm->tid,
                    formatted_time(elapsed_since(write_tv), format_seconds_us).text,
                    static_cast<int>(length));
    }
}
