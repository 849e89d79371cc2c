#include "perf_log/output/trace_record.h"

using ostrum::append_buffer;
using ostrum::total_record;
using ostrum::trace_kind;
using ostrum::trace_line;

namespace {

// One line's fields, each behind a comma.
class field_writer {
public:
    field_writer(append_buffer& out, char kind) : out_(out) { out_.add_character(kind); }
    ~field_writer() { out_.add_character('\n'); }
    field_writer(const field_writer&) = delete;
    field_writer& operator=(const field_writer&) = delete;

    field_writer& number(int64_t value)
    {
        out_.add_character(',');
        out_.add_number(value);
        return *this;
    }
    field_writer& identity(uint64_t value)
    {
        out_.add_character(',');
        out_.add_unsigned(value);
        return *this;
    }
    field_writer& text(const char* value)
    {
        out_.add_character(',');
        out_.add_text(value);
        return *this;
    }
    field_writer& time(int64_t value_tv)
    {
        out_.add_character(',');
        out_.add_time(value_tv);
        return *this;
    }

private:
    append_buffer& out_;
};

void write_start(append_buffer& out, const trace_line& line)
{
    constexpr int64_t reserved = 0;
    field_writer(out, 'S')
        .number(line.level)
        .number(reserved)
        .number(line.opcode)
        .number(line.flags)
        .text(line.opname)
        .time(line.time_tv)
        .text(line.fname)
        .number(line.lineno)
        .identity(line.pid)
        .identity(line.tid)
        .text(line.program)
        .number(line.bucket)
        .text(line.obj_type)
        .number(line.db_num);
}

void write_figures(append_buffer& out, const total_record& totals)
{
    field_writer(out, 'F')
        .time(totals.total_tv)
        .number(totals.total_recs)
        .number(totals.total_calls)
        .time(totals.min_tv)
        .time(totals.max_tv)
        .time(totals.bs_tv)
        .time(totals.be_tv)
        .number(totals.cm_cache_calls)
        .time(totals.cm_cache_tv)
        .number(totals.total_errors)
        .time(totals.user_cpu_tv)
        .time(totals.sys_cpu_tv);
}

} // namespace

void write_perf(append_buffer* out, trace_kind kind, const trace_line* line)
{
    if (kind == trace_kind::start) {
        write_start(*out, *line);
    } else {
        write_figures(*out, line->totals);
    }
}
