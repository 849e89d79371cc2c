#include "readers/data_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "readers/data_layout.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr size_t pid_offset = 352;
constexpr size_t text_bytes = 128;
constexpr size_t value_bytes = 1024;
constexpr size_t variables_changed_offset = 3'309'952;
constexpr size_t metrics_offset = 5'800'336;

// A view of one entry, or of the whole file, with the two kinds of fields that exist.
class fields {
public:
    explicit fields(std::span<const unsigned char> bytes) : bytes_(bytes) {}

    [[nodiscard]] uint64_t word(size_t offset) const
    {
        uint64_t value = 0;
        std::memcpy(&value, bytes_.data() + offset, sizeof value);
        return value;
    }
    [[nodiscard]] int64_t number(size_t offset) const { return static_cast<int64_t>(word(offset)); }
    [[nodiscard]] uint32_t half(size_t offset) const { return static_cast<uint32_t>(word(offset)); }
    [[nodiscard]] std::string text(size_t offset, size_t size) const
    {
        const auto field = bytes_.subspan(offset, size - 1);
        return {field.begin(), std::find(field.begin(), field.end(), 0)};
    }

private:
    std::span<const unsigned char> bytes_;
};

operation_counter decode_counter(const fields& entry)
{
    operation_counter counter;
    counter.opname = entry.text(64, text_bytes);
    counter.program = entry.text(192, text_bytes);
    counter.fname = entry.text(320, text_bytes);
    counter.obj_type = entry.text(448, text_bytes);
    counter.opcode = static_cast<int32_t>(entry.half(576));
    counter.opflags = entry.half(584);
    counter.lineno = static_cast<int32_t>(entry.half(592));
    counter.recs = entry.word(600);
    counter.calls = entry.word(608);
    counter.errors = entry.word(616);
    counter.total_tv = entry.word(624);
    counter.user_cpu_tv = entry.word(632);
    counter.sys_cpu_tv = entry.word(640);
    counter.db_number = entry.number(648);
    return counter;
}

error_counter decode_error(const fields& entry)
{
    error_counter error;
    error.dbno = entry.number(0);
    error.opcode = static_cast<int32_t>(entry.half(8));
    error.opname = entry.text(16, text_bytes);
    error.program = entry.text(144, text_bytes);
    error.err_class = entry.half(272);
    error.location = entry.half(280);
    error.errnum = entry.half(288);
    error.count = entry.word(296);
    return error;
}

variable decode_variable(const fields& entry)
{
    return {entry.text(64, text_bytes), entry.text(192, value_bytes)};
}

template <typename Record>
std::vector<Record> decode_table(std::span<const unsigned char> image, const table_layout& table,
                                 Record (*decode)(const fields&), std::vector<std::string>& problems)
{
    const uint64_t claimed = fields(image).word(table.count_offset);
    const size_t used = std::min<uint64_t>(claimed, table.entries);
    if (used != claimed) {
        problems.push_back("claims " + std::to_string(claimed) + " " + table.name + ", of " +
                           std::to_string(table.entries) + " at most");
    }
    std::vector<Record> records;
    records.reserve(used);
    for (size_t index = 0; index < used; ++index) {
        records.push_back(
            decode(fields(image.subspan(table.offset + index * table.entry_bytes, table.entry_bytes))));
    }
    return records;
}

struct open_file {
    explicit open_file(const std::string& path)
        // Not blocking: a FIFO in place of the file must not stop the tool.
        : fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
    {}
    ~open_file()
    {
        if (fd >= 0) {
            ::close(fd);
        }
    }
    open_file(const open_file&) = delete;
    open_file& operator=(const open_file&) = delete;
    int fd;
};

[[noreturn]] void fail(const std::string& path, const std::string& reason)
{
    throw input_error(path + ": " + reason);
}

} // namespace

data_file decode_data_file(std::span<const unsigned char> image)
{
    data_file file;
    const fields header(image);
    if (std::memcmp(image.data(), data_signature, sizeof(data_signature)) != 0) {
        file.problems.emplace_back("has no signature of this version");
    }
    file.pid = static_cast<int32_t>(header.half(pid_offset));
    file.counters = decode_table(image, counter_table, decode_counter, file.problems);
    file.variables = decode_table(image, variable_table, decode_variable, file.problems);
    file.errors = decode_table(image, error_table, decode_error, file.problems);
    file.variables_changed_tv = header.number(variables_changed_offset);
    for (size_t word = 0; word < metric_words; ++word) {
        file.metrics[word] = header.word(metrics_offset + 8 * word);
    }
    return file;
}

std::vector<unsigned char> read_data_image(const std::string& path)
{
    const open_file file(path);
    struct stat status {};
    if (file.fd < 0 || fstat(file.fd, &status) != 0) {
        fail(path, std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        fail(path, "not a regular file");
    }
    if (static_cast<size_t>(status.st_size) != data_file_bytes) {
        fail(path, "not a data file: " + std::to_string(status.st_size) + " bytes in place of " +
                       std::to_string(data_file_bytes));
    }
    std::vector<unsigned char> image(data_file_bytes);
    for (size_t done = 0; done < image.size();) {
        const ssize_t got = ::read(file.fd, image.data() + done, image.size() - done);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            fail(path, got < 0 ? std::strerror(errno) : "became shorter while it was read");
        }
        done += static_cast<size_t>(got);
    }
    return image;
}

data_file read_data_file(const std::string& path)
{
    return decode_data_file(read_data_image(path));
}

} // namespace ostrum_tool
