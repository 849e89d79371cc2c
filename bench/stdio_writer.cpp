#include "stdio_writer.h"

#include <cinttypes>
#include <sstream>

namespace ostrum_bench {
namespace {

constexpr int64_t ns_per_second = 1'000'000'000;

class field_reader {
public:
    explicit field_reader(const std::string& line) : fields_(line) { (void)text(); } // the kind
    std::string text()
    {
        std::string field;
        std::getline(fields_, field, ',');
        return field;
    }
    int64_t number() { return std::stoll(text()); }
    int64_t time()
    {
        const std::string field = text();
        const size_t point = field.find('.');
        return point == std::string::npos
                   ? 0
                   : std::stoll(field) * ns_per_second + std::stoll(field.substr(point + 1));
    }

private:
    std::istringstream fields_;
};

// The order of the members is that of the fields, and so is the order in which a braced list is read.
trace_line parse_line(const std::string& line)
{
    field_reader read(line);
    if (line[0] == 'S') {
        return {true,
                {read.number(), read.number(), read.number(), read.number(), read.text(), read.time(),
                 read.text(), read.number(), read.number(), read.number(), read.text(), read.number(),
                 read.text(), read.number()},
                {}};
    }
    return {false,
            {},
            {read.time(), read.number(), read.number(), read.time(), read.time(), read.time(), read.time(),
             read.number(), read.time(), read.number(), read.time(), read.time()}};
}

struct time_field {
    char text[32];
};

time_field as_text(int64_t time_tv)
{
    time_field field{"0"};
    if (time_tv != 0) {
        std::snprintf(field.text, sizeof(field.text), "%" PRId64 ".%09" PRId64, time_tv / ns_per_second,
                      time_tv % ns_per_second);
    }
    return field;
}

void write_start(FILE* file, const start_fields& line)
{
    std::fprintf(file,
                 "S,%" PRId64 ",%" PRId64 ",%" PRId64 ",%" PRId64 ",%s,%s,%s,%" PRId64 ",%" PRId64 ",%" PRId64
                 ",%s,%" PRId64 ",%s,%" PRId64 "\n",
                 line.level, line.reserved, line.opcode, line.flags, line.name.c_str(),
                 as_text(line.time_tv).text, line.file.c_str(), line.line, line.pid, line.tid,
                 line.program.c_str(), line.bucket, line.type.c_str(), line.db);
}

void write_figures(FILE* file, const figure_fields& line)
{
    std::fprintf(file, "F,%s,%" PRId64 ",%" PRId64 ",%s,%s,%s,%s,%" PRId64 ",%s,%" PRId64 ",%s,%s\n",
                 as_text(line.total_tv).text, line.records, line.calls, as_text(line.min_tv).text,
                 as_text(line.max_tv).text, as_text(line.from_tv).text, as_text(line.to_tv).text,
                 line.cached_calls, as_text(line.cached_tv).text, line.errors, as_text(line.user_tv).text,
                 as_text(line.system_tv).text);
}

} // namespace

std::vector<trace_line> parse_trace(const std::string& text)
{
    std::vector<trace_line> lines;
    std::istringstream all(text);
    for (std::string line; std::getline(all, line);) {
        lines.push_back(parse_line(line));
    }
    return lines;
}

void write_with_stdio(FILE* file, const std::vector<trace_line>& lines)
{
    for (const trace_line& line : lines) {
        if (line.is_start) {
            write_start(file, line.start);
        } else {
            write_figures(file, line.figures);
        }
    }
    std::fflush(file);
}

} // namespace ostrum_bench
