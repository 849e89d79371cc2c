#include "perf_log/output/trace_record.h"

#include <cstring>

#include "util/text.h"

using namespace ostrum;

namespace {

// Of a line, its texts left out.
constexpr size_t longest_numbers = 1024;
static_assert(longest_numbers > 12 * (longest_time + 1) + 2);

// Texts that are put into a line's own room; a longer one gets room of its own.
constexpr size_t longest_plain_text = text_bytes;
constexpr size_t most_texts = 4;

// One line's fields, each behind a comma, put straight into the buffer's memory.
class field_writer {
public:
    field_writer(append_buffer& out, char kind) : out_(out), at_(out.room_for(line_room)) { *at_++ = kind; }
    ~field_writer()
    {
        *at_++ = '\n';
        out_.filled_to(at_);
    }
    field_writer(const field_writer&) = delete;
    field_writer& operator=(const field_writer&) = delete;

    field_writer& number(int64_t value)
    {
        *at_++ = ',';
        at_ = put_number(at_, value);
        return *this;
    }
    field_writer& time(int64_t value_tv)
    {
        *at_++ = ',';
        at_ = put_time(at_, value_tv);
        return *this;
    }
    field_writer& text(const char* value) { return text(std::string_view(text_or_empty(value))); }
    field_writer& text(std::string_view value)
    {
        *at_++ = ',';
        if (value.size() > longest_plain_text) {
            out_.filled_to(at_);
            out_.add(value);
            at_ = out_.room_for(line_room);
        } else {
            memcpy(at_, value.data(), value.size());
            at_ += value.size();
        }
        return *this;
    }
    // A field that is the same in every line.
    template <size_t Size>
    field_writer& constant(const char (&with_comma)[Size])
    {
        memcpy(at_, with_comma, Size - 1);
        at_ += Size - 1;
        return *this;
    }

private:
    static constexpr size_t line_room = longest_numbers + most_texts * (longest_plain_text + 1);
    static_assert(line_room <= append_buffer::most_in_a_row);

    append_buffer& out_;
    char* at_;
};

void write_start(append_buffer& out, const trace_line& line)
{
    field_writer(out, 'S')
        .number(line.level)
        .constant(",0") // reserved
        .number(line.opcode)
        .number(line.flags)
        .text(line.opname)
        .time(line.time_tv)
        .text(line.fname)
        .number(line.lineno)
        .text(line.owner->text())
        .text(line.program)
        .number(line.bucket)
        .text(line.obj_type)
        .number(line.db_num);
}

// A bucket without calls has no minimum, whatever its record says.
void write_figures(append_buffer& out, const total_record& totals, bool is_bucket)
{
    const bool has_minimum = !is_bucket || totals.total_calls != 0;
    field_writer(out, 'F')
        .time(totals.total_tv)
        .number(totals.total_recs)
        .number(totals.total_calls)
        .time(has_minimum ? totals.min_tv : 0)
        .time(totals.max_tv)
        .time(is_bucket ? totals.bs_tv : 0)
        .time(is_bucket ? totals.be_tv : 0)
        .number(totals.cm_cache_calls)
        .time(totals.cm_cache_tv)
        .number(totals.total_errors)
        .time(totals.user_cpu_tv)
        .time(totals.sys_cpu_tv);
}

} // namespace

owner_fields::owner_fields(uint32_t pid, uint64_t tid)
{
    char* end = put_unsigned(text_, pid);
    *end++ = ',';
    length_ = static_cast<size_t>(put_unsigned(end, tid) - text_);
}

void write_perf(append_buffer* out, trace_kind kind, const trace_line* line)
{
    if (kind == trace_kind::start) {
        write_start(*out, *line);
    } else {
        write_figures(*out, *line->totals, line->bucket != 0);
    }
}
