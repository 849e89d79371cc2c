#include "readers/data_file.h"

#include "readers/byte_source.h"
#include "readers/data_layout.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

operation_counter decode_counter(const image_view& entry)
{
    using namespace counter_at;
    operation_counter counter;
    counter.opname = entry.text(opname, text_bytes);
    counter.program = entry.text(program, text_bytes);
    counter.fname = entry.text(fname, text_bytes);
    counter.obj_type = entry.text(obj_type, text_bytes);
    counter.opcode = entry.signed_half(opcode);
    counter.opflags = entry.half(opflags);
    counter.lineno = entry.signed_half(lineno);
    counter.recs = entry.word(recs);
    counter.calls = entry.word(calls);
    counter.errors = entry.word(errors);
    counter.total_tv = entry.word(total_tv);
    counter.user_cpu_tv = entry.word(user_cpu_tv);
    counter.sys_cpu_tv = entry.word(sys_cpu_tv);
    counter.db_number = entry.number(db_number);
    return counter;
}

error_counter decode_error(const image_view& entry)
{
    using namespace error_at;
    error_counter error;
    error.dbno = entry.number(dbno);
    error.opcode = entry.signed_half(opcode);
    error.opname = entry.text(opname, text_bytes);
    error.program = entry.text(program, text_bytes);
    error.err_class = entry.half(err_class);
    error.location = entry.half(location);
    error.errnum = entry.half(errnum);
    error.count = entry.word(count);
    return error;
}

variable decode_variable(const image_view& entry)
{
    return {entry.text(variable_at::name, text_bytes), entry.text(variable_at::value, value_bytes)};
}

template <typename Record>
std::vector<Record> decode_table(const image_view& image, const table_layout& table,
                                 Record (*decode)(const image_view&), std::vector<std::string>& problems)
{
    const std::string overfull = image.overfull_text(table);
    if (!overfull.empty()) {
        problems.push_back(overfull);
    }
    std::vector<Record> records;
    records.reserve(image.entries_in_use(table));
    for (size_t index = 0; index < image.entries_in_use(table); ++index) {
        records.push_back(decode(image.entry(table, index)));
    }
    return records;
}

} // namespace

data_file decode_data_file(std::span<const unsigned char> image)
{
    data_file file;
    const image_view whole(image);
    if (!whole.has_signature()) {
        file.problems.emplace_back("has no signature of this version");
    }
    file.pid = whole.signed_half(file_at::pid);
    file.counters = decode_table(whole, counter_table, decode_counter, file.problems);
    file.variables = decode_table(whole, variable_table, decode_variable, file.problems);
    file.errors = decode_table(whole, error_table, decode_error, file.problems);
    file.variables_changed_tv = whole.number(file_at::variables_changed);
    for (size_t word = 0; word < metric_words; ++word) {
        file.metrics[word] = whole.word(file_at::metrics + 8 * word);
    }
    return file;
}

std::vector<unsigned char> read_data_image(const std::string& path)
{
    const plain_file file = open_plain(path);
    if (file.size_bytes != data_file_bytes) {
        throw input_error(path + ": not a data file: " + std::to_string(file.size_bytes) +
                          " bytes in place of " + std::to_string(data_file_bytes));
    }
    std::vector<unsigned char> image(data_file_bytes);
    if (read_fully(*file.source, {reinterpret_cast<char*>(image.data()), image.size()}) < image.size()) {
        throw input_error(path + ": became shorter while it was read");
    }
    return image;
}

data_file read_data_file(const std::string& path)
{
    return decode_data_file(read_data_image(path));
}

} // namespace ostrum_tool
