#include "export/record_rows.h"

#include <filesystem>
#include <type_traits>

#include <fmt/format.h>
#include <unistd.h>

#include "export/stored_hash.h"
#include "output/table.h"
#include "output/value_text.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

uint64_t hash_text(uint64_t hash, std::string_view text)
{
    return stored_hash(stored_hash(hash, text), "\xFF"); // no text holds this byte where it is UTF-8
}

int64_t path_key_of(const trace_row& row)
{
    uint64_t hash = hash_text(stored_hash_start, fmt::format("{} {} {} {} {}", row.parent_key, row.opcode,
                                                             row.flags, row.lineno, row.db_num));
    for (const std::string* text : {&row.name, &row.program, &row.fname, &row.obj_type}) {
        hash = hash_text(hash, *text);
    }
    return static_cast<int64_t>(hash);
}

class row_maker final : public trace_sink {
public:
    explicit row_maker(const std::function<void(const trace_row&)>& on_row) : on_row_(on_row) {}

    void on_frame(const start_record& frame, uint64_t offset) override
    {
        period_ = made_from(frame, offset);
        period_.period_offset = offset;
        period_.period_from_tv = frame.time_tv;
    }
    void on_frame_end(const figures& record) override
    {
        trace_row row = period_;
        row.flushed_tv = record.total_tv;
        on_row_(row);
    }
    void on_path(const start_record& path, uint64_t offset, bool /*missing*/) override
    {
        trace_row row = made_from(path, offset);
        row.period_offset = period_.offset;
        row.period_from_tv = period_.period_from_tv;
        if (!open_.empty()) {
            row.parent_offset = open_.back().offset;
            row.parent_key = open_.back().path_key;
        }
        row.path_key = path_key_of(row);
        open_.push_back(std::move(row));
    }
    void on_figures(const figures& record) override
    {
        open_.back().sums = record;
        on_row_(open_.back());
        open_.pop_back();
    }
    void on_lost() override { open_.pop_back(); }
    void on_bucket(int32_t number, uint64_t offset, const figures& record) override
    {
        if (open_.empty()) {
            return;
        }
        trace_row row = open_.back();
        row.parent_offset = row.offset;
        row.offset = offset;
        row.bucket = number;
        row.sums = record;
        on_row_(row);
    }
    void on_damage(uint64_t offset, const std::string& what) override { damages.add(offset, what); }

    damage_list damages;

private:
    static trace_row made_from(const start_record& record, uint64_t offset)
    {
        trace_row row;
        row.offset = offset;
        row.level = record.level;
        row.pid = record.pid;
        row.tid = record.tid;
        row.opcode = record.opcode;
        row.flags = record.flags;
        row.lineno = record.lineno;
        row.db_num = record.db_num;
        row.name = printable(record.opname);
        row.fname = printable(record.fname);
        row.program = printable(record.program);
        row.obj_type = printable(record.obj_type);
        return row;
    }

    const std::function<void(const trace_row&)>& on_row_;
    trace_row period_;
    std::vector<trace_row> open_;
};

void write_field(std::ostream& out, const std::string& text)
{
    out << tab_escaped(text);
}

template <typename Value>
void write_field(std::ostream& out, const std::optional<Value>& value)
{
    value ? out << *value : out << "\\N";
}

template <typename Number>
requires std::is_arithmetic_v<Number>
void write_field(std::ostream& out, Number number)
{
    out << number;
}

} // namespace

damage_list read_rows(const std::string& path, const std::function<void(const trace_row&)>& on_row)
{
    if (path == "-") {
        throw usage_error("rows are known by their file: standard input has no name");
    }
    row_maker maker(on_row);
    trace_parser parser(maker);
    const auto source = open_source(path);
    try {
        parser.read(*source, {});
        if (parser.open_frames() > 0) {
            maker.damages.add(parser.last_frame(), "block without an end");
        }
    } catch (const damaged_input& error) {
        maker.damages.add(0, error.what());
    }
    return maker.damages;
}

std::string row_file_name(const std::string& path)
{
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::canonical(path, error);
    std::string name = error ? path : absolute.string();
    for (const std::string_view ending : {".gz", ".zst"}) {
        if (name.ends_with(ending)) {
            name.resize(name.size() - ending.size());
        }
    }
    return printable(name);
}

std::string this_host()
{
    char name[256] = "";
    return ::gethostname(name, sizeof(name) - 1) == 0 ? printable(name) : "localhost";
}

void write_tsv_header(std::ostream& out)
{
    out << "host\tfile";
    visit_columns({}, [&](const char* name, const auto& /*value*/) { out << '\t' << name; });
    out << '\n';
}

void write_tsv_row(std::ostream& out, const std::string& host, const std::string& file, const trace_row& row)
{
    write_field(out, host);
    out << '\t';
    write_field(out, file);
    visit_columns(row, [&](const char* /*name*/, const auto& value) {
        out << '\t';
        write_field(out, value);
    });
    out << '\n';
}

} // namespace ostrum_tool
