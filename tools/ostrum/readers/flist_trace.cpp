#include "readers/flist_trace.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <optional>
#include <string>

#include "readers/line_reader.h"
#include "readers/time_units.h"
#include "readers/trace_record.h"

namespace ostrum_tool {
namespace {

constexpr size_t time_length = 26; // YYYY/MM/DD HH:MM:SS.uuuuuu
constexpr size_t minute_length = 16;

// Goes through a line from its begin; each step says whether it found what it wants.
class line_scanner {
public:
    explicit line_scanner(std::string_view text) : text_(text) {}

    bool take(std::string_view part)
    {
        if (!text_.starts_with(part)) {
            return false;
        }
        text_.remove_prefix(part.size());
        return true;
    }
    template <typename Number>
    bool take_number(Number& number, int base = 10)
    {
        const auto [end, error] = std::from_chars(text_.data(), text_.data() + text_.size(), number, base);
        if (error != std::errc{}) {
            return false;
        }
        text_.remove_prefix(static_cast<size_t>(end - text_.data()));
        return true;
    }
    // Everything up to the first, or the last, place of a mark, and the mark itself.
    bool take_until(std::string_view mark, std::string_view& part, bool last = false)
    {
        const size_t at = last ? text_.rfind(mark) : text_.find(mark);
        if (at == std::string_view::npos) {
            return false;
        }
        part = text_.substr(0, at);
        text_.remove_prefix(at + mark.size());
        return true;
    }
    std::string_view take_first(size_t count)
    {
        const std::string_view part = text_.substr(0, count);
        text_.remove_prefix(part.size());
        return part;
    }
    void skip_blanks() { text_.remove_prefix(std::min(text_.find_first_not_of(' '), text_.size())); }
    [[nodiscard]] std::string_view rest() const { return text_; }

private:
    std::string_view text_;
};

// Local times, minute by minute: the zone is asked once for each minute.
class local_clock {
public:
    bool parse(std::string_view text, int64_t& time_tv)
    {
        int64_t seconds_tv = 0;
        if (text.size() != time_length || text[4] != '/' || text[7] != '/' || text[10] != ' ' ||
            text[13] != ':' || text[minute_length] != ':' ||
            !parse_seconds_of_minute(text.substr(minute_length + 1), seconds_tv)) {
            return false;
        }
        const std::string_view minute = text.substr(0, minute_length);
        if (minute != minute_) {
            tm fields{};
            const std::string copy(minute);
            const char* const end = strptime(copy.c_str(), "%Y/%m/%d %H:%M", &fields);
            if (end == nullptr || *end != '\0') {
                return false;
            }
            fields.tm_isdst = -1;
            int64_t minute_tv = 0;
            if (__builtin_mul_overflow(mktime(&fields), ns_per_second, &minute_tv)) {
                return false; // a year beyond 2262, or before 1678
            }
            minute_tv_ = minute_tv;
            minute_ = copy;
        }
        return !__builtin_add_overflow(minute_tv_, seconds_tv, &time_tv);
    }

private:
    static bool parse_seconds_of_minute(std::string_view text, int64_t& seconds_tv)
    {
        return text.size() == 9 && text.find_first_not_of("0123456789.") == std::string_view::npos &&
               parse_seconds(text[0] == '0' ? text.substr(1) : text, seconds_tv);
    }

    std::string minute_;
    int64_t minute_tv_ = 0;
};

bool is_header(std::string_view line)
{
    return line.starts_with("Timestamp ") || line.starts_with("--------- ");
}

bool is_block_start(std::string_view line)
{
    return line.starts_with("== IN[") || line.starts_with("== OUT[");
}

class flist_parser {
public:
    explicit flist_parser(const flist_sink& sink) : sink_(sink) {}

    flist_summary run(byte_source& from, int64_t most_events)
    {
        line_reader lines(from);
        for (text_line line; summary_.events < most_events && lines.next(line);) {
            read_line(line);
        }
        summary_.bytes = lines.offset();
        return summary_;
    }

private:
    void read_line(const text_line& line)
    {
        const std::string_view text = line.text;
        flist_event event;
        event.offset = line.offset;
        if (is_header(text)) {
            in_list_ = false;
        } else if (is_block_start(text)) {
            in_list_ = true;
            take(read_block_line(text, event), event);
        } else if (const auto rest = after_prefix(text, event)) {
            in_list_ = false;
            take(read_tree_line(*rest, event), event);
        } else if (in_list_) {
            ++summary_.list_lines; // of any length and form
            if (sink_.on_list_line) {
                sink_.on_list_line(text);
            }
        } else if (line.is == text_line::kind::too_long) {
            sink_.on_damage(line.offset, "line is too long");
        } else {
            sink_.on_damage(line.offset, "neither a tree line nor a block");
        }
        if (line.is == text_line::kind::unfinished && !in_list_) {
            sink_.on_damage(line.offset, "last line is cut short");
        }
    }

    void take(bool readable, const flist_event& event)
    {
        if (!readable) {
            sink_.on_damage(event.offset, "an entry that is cut or has a bad number");
            return;
        }
        ++summary_.events;
        if (sink_.on_event) {
            sink_.on_event(event);
        }
    }

    // What stands behind TIME[ (PID/TID)]  ELAPSED and two blanks; nothing when the line does not begin so.
    std::optional<std::string_view> after_prefix(std::string_view text, flist_event& event)
    {
        line_scanner scan(text);
        if (!clock_.parse(scan.take_first(time_length), event.time_tv)) {
            return std::nullopt;
        }
        if (scan.take(" (")) {
            event.has_ids = scan.take_number(event.pid) && scan.take("/") && scan.take_number(event.tid) &&
                            scan.take(")");
            if (!event.has_ids) {
                return std::nullopt;
            }
        }
        std::string_view elapsed;
        if (!scan.take("  ")) {
            return std::nullopt;
        }
        scan.skip_blanks();
        if (!scan.take_until("  ", elapsed) || !parse_seconds(elapsed, event.elapsed_tv)) {
            return std::nullopt;
        }
        return scan.rest();
    }

    bool read_tree_line(std::string_view text, flist_event& event)
    {
        // Ten columns with the flags, right-aligned, or with a file name, left-aligned.
        line_scanner scan(text);
        const bool is_start = text.starts_with(" ") || text.starts_with("0x") || text.starts_with("-");
        if (is_start && read_tree_start(text, event)) {
            return true;
        }
        event.fname = scan.take_first(10);
        event.fname = event.fname.substr(0, event.fname.find_last_not_of(' ') + 1);
        if (scan.take("  <opcode_end ") && scan.rest().ends_with(">")) {
            event.is = flist_event::kind::tree_end;
            event.level = 1;
            event.name = scan.rest().substr(0, scan.rest().size() - 1);
            return true;
        }
        const size_t before = scan.rest().size();
        scan.skip_blanks();
        const auto blanks = static_cast<int32_t>(before - scan.rest().size());
        if (scan.rest() == "*TXN*") {
            event.is = flist_event::kind::tree_cached;
            event.level = (blanks - 4) / 2 + 1;
            return blanks >= 4;
        }
        event.is = flist_event::kind::tree_error;
        event.level = (blanks - 2) / 2 + 1;
        return blanks >= 2 && scan.take("ERROR[") && scan.take_number(event.error) && scan.rest() == "]";
    }

    static bool read_tree_start(std::string_view text, flist_event& event)
    {
        line_scanner scan(text);
        scan.skip_blanks();
        if (!scan.take_until(" ", event.flags)) {
            return false;
        }
        event.is = flist_event::kind::tree_start;
        for (event.level = 1; scan.take(" |"); ++event.level) {
        }
        if (!scan.take(" ")) {
            return false;
        }
        // NAME(FILE[LINE] ...: the name may hold parentheses, the file hardly any.
        const std::string_view behind = scan.rest();
        const size_t bracket = behind.find('[', std::min(behind.find('('), behind.size()));
        const size_t open = bracket == std::string_view::npos ? bracket : behind.rfind('(', bracket);
        if (open == std::string_view::npos) {
            return false;
        }
        event.name = behind.substr(0, open);
        event.fname = behind.substr(open + 1, bracket - open - 1);
        line_scanner number(behind.substr(bracket + 1));
        return number.take_number(event.lineno) && number.take("] ") &&
               number.rest().find(')') != std::string_view::npos;
    }

    bool read_block_line(std::string_view text, flist_event& event)
    {
        line_scanner scan(text);
        const bool starts = scan.take("== IN[");
        event.is = starts ? flist_event::kind::block_in : flist_event::kind::block_out;
        std::string_view time;
        std::string_view source;
        int64_t top = 0;
        event.has_ids = (starts || scan.take("== OUT[")) && scan.take_until("] FLAGS[", event.name) &&
                        scan.take_until("] AT[", event.flags) && scan.take_until("] PID/TID[", time) &&
                        clock_.parse(time, event.time_tv) && scan.take_number(event.pid) && scan.take("/") &&
                        scan.take_number(event.tid) && scan.take("] LVL/TOP/SEQ[") &&
                        scan.take_number(event.level) && scan.take("/") && scan.take_number(top) &&
                        scan.take("/") && scan.take_number(event.seq) && scan.take("] SRC[") &&
                        scan.take_until("] CORRELATION_ID[", source);
        return event.has_ids && take_source(source, event) && take_tail(scan, event);
    }

    static bool take_source(std::string_view source, flist_event& event)
    {
        const size_t comma = source.rfind(", ");
        if (comma == std::string_view::npos) {
            return false;
        }
        event.fname = source.substr(0, comma);
        return line_scanner(source.substr(comma + 2)).take_number(event.lineno);
    }

    // Behind the correlation identifier, which may hold anything: of an OUT cache and time, of both the
    // error.
    static bool take_tail(line_scanner& scan, flist_event& event)
    {
        if (event.is == flist_event::kind::block_out) {
            std::string_view cache;
            std::string_view elapsed;
            if (!scan.take_until("] TXN_CACHE[", event.correlation) ||
                !scan.take_until("] ELAPSED[", cache) || !scan.take_until("]", elapsed)) {
                return false;
            }
            event.cached = cache == "YES";
            if (elapsed != "timing-disabled" && !parse_seconds(elapsed, event.elapsed_tv)) {
                return false;
            }
        } else if (!scan.take_until("]", event.correlation)) {
            return false;
        }
        return !scan.take(" ERROR_STATUS[") || take_error(scan, event);
    }

    static bool take_error(line_scanner& scan, flist_event& event)
    {
        if (!scan.take_number(event.error) || !scan.take("][")) {
            return false;
        }
        const std::string_view text = scan.rest();
        event.error_text = text.substr(0, text.ends_with("]") ? text.size() - 1 : text.size());
        return true;
    }

    const flist_sink& sink_;
    local_clock clock_;
    flist_summary summary_;
    bool in_list_ = false;
};

} // namespace

flist_summary read_flist_trace(byte_source& from, const flist_sink& sink, int64_t most_events)
{
    return flist_parser(sink).run(from, most_events);
}

bool looks_like_flist_trace(std::string_view first_line)
{
    int64_t ignored = 0;
    local_clock clock;
    return is_header(first_line) || is_block_start(first_line) ||
           clock.parse(first_line.substr(0, time_length), ignored);
}

} // namespace ostrum_tool
