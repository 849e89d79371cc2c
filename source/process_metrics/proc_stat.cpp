#include "process_metrics/proc_stat.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "util/diagnostics.h"
#include "util/resources.h"
#include "util/text.h"
#include "util/time_value.h"

using namespace ostrum;

namespace {

enum class field_kind : int32_t { number, word, character };

struct stat_field {
    field_kind kind;
    bool wanted;
};

// The line as far as it is read: pid, command, state, five numbers, flags and four fault counts, user and
// system ticks, four numbers, threads, two numbers, virtual size, resident pages.
constexpr stat_field skipped_number{field_kind::number, false};
constexpr stat_field wanted_number{field_kind::number, true};
constexpr stat_field stat_fields[] = {wanted_number,
                                      {field_kind::word, false},
                                      {field_kind::character, false},
                                      skipped_number,
                                      skipped_number,
                                      skipped_number,
                                      skipped_number,
                                      skipped_number,
                                      skipped_number,
                                      skipped_number,
                                      skipped_number,
                                      skipped_number,
                                      skipped_number,
                                      wanted_number,
                                      wanted_number,
                                      skipped_number,
                                      skipped_number,
                                      skipped_number,
                                      skipped_number,
                                      wanted_number,
                                      skipped_number,
                                      skipped_number,
                                      wanted_number,
                                      wanted_number};
enum wanted_value : size_t {
    pid_value,
    utime_value,
    stime_value,
    threads_value,
    vsize_value,
    rss_value,
    count_of_values
};

constexpr size_t line_bytes = 1024;

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\n';
}

// Moves past a number and stores it; false when none begins here. Wraps like the kernel's own words.
bool scan_number(const char*& at, int64_t& value)
{
    const bool negative = *at == '-';
    const char* digit = at + (negative || *at == '+' ? 1 : 0);
    if (!is_digit(*digit)) {
        return false;
    }
    uint64_t magnitude = 0;
    for (; is_digit(*digit); ++digit) {
        magnitude = magnitude * 10 + static_cast<uint64_t>(*digit - '0');
    }
    value = static_cast<int64_t>(negative ? 0 - magnitude : magnitude);
    at = digit;
    return true;
}

bool scan_field(const char*& at, field_kind kind, int64_t& number)
{
    while (is_blank(*at)) {
        ++at;
    }
    if (kind == field_kind::number) {
        return scan_number(at, number);
    }
    if (*at == '\0') {
        return false;
    }
    const char* begin = at++;
    while (kind == field_kind::word && *at != '\0' && !is_blank(*at)) {
        ++at;
    }
    return at != begin;
}

// The number of wanted values found before the line ended or did not fit; -1 for an empty line.
int32_t scan_line(const char* line, int64_t (&values)[count_of_values])
{
    if (*line == '\0') {
        return -1;
    }
    int32_t found = 0;
    for (const stat_field& field : stat_fields) {
        int64_t number = 0;
        if (!scan_field(line, field.kind, number)) {
            return found;
        }
        if (field.wanted) {
            values[found++] = number;
        }
    }
    return found;
}

// The file's first bytes as text; errno says whether reading failed.
void read_text(const unique_fd& file, char (&text)[line_bytes])
{
    errno = 0;
    const ssize_t length = os::read_file(file.get(), text, sizeof(text) - 1);
    text[length > 0 ? length : 0] = '\0';
}

// Not strerror(), which takes a lock of the locale's and may allocate.
const char* text_of(int error)
{
    const char* text = strerrordesc_np(error);
    return text != nullptr ? text : "";
}

int64_t ticks_to_tv(int64_t ticks, int64_t ticks_per_second)
{
    return static_cast<int64_t>(static_cast<uint64_t>(ticks) * tv_per_s) / ticks_per_second;
}

} // namespace

proc_stat get_proc_stat(int32_t pid, int64_t ticks_per_second, int64_t page_bytes)
{
    char path[64];
    snprintf(path, sizeof(path), "/proc/%d/stat", pid);
    const unique_fd file{os::open_file(path, O_RDONLY, 0)};
    if (!file) {
        return {};
    }
    char line[line_bytes];
    read_text(file, line);
    int64_t values[count_of_values] = {};
    const int32_t found = scan_line(line, values);
    if (found != count_of_values || errno != 0) {
        err_print("get_proc_stat : expected[%d] got[%d] errno[%d](%s)\n", static_cast<int>(count_of_values),
                  found, errno, text_of(errno));
        return {};
    }
    return {static_cast<int32_t>(values[pid_value]),
            ticks_to_tv(values[utime_value], ticks_per_second),
            ticks_to_tv(values[stime_value], ticks_per_second),
            1,
            static_cast<int32_t>(values[threads_value]),
            values[vsize_value],
            values[rss_value] * page_bytes};
}

void print_ps(const proc_stat* sample, const char* label)
{
    if (!debug_on(debug_detail) || sample == nullptr || sample->pid == 0) {
        return;
    }
    char utime[32];
    char stime[32];
    ostrum_fmt_tv(sample->utime, utime, sizeof(utime), format_seconds_us);
    ostrum_fmt_tv(sample->stime, stime, sizeof(stime), format_seconds_us);
    // kept: the bracket that closes utime
    debug_print("%s: pid[%d] => utime[%s) stime[%s] vsize[%10.1lf Kb] rss[%10.1lf Kb] processes[%6d] "
                "threads[%6d]\n",
                label, sample->pid, utime, stime, static_cast<double>(sample->vsize) / 1024,
                static_cast<double>(sample->rss) / 1024, sample->processes, sample->threads);
}
