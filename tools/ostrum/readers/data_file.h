#ifndef OSTRUM_TOOL_READERS_DATA_FILE_H
#define OSTRUM_TOOL_READERS_DATA_FILE_H
// Decodes the shared data file from its published offsets. It is opened for reading only and copied in
// one go: no lock is taken and nothing is written, so a number may be a moment older than its neighbour.
// Counts and texts are not trusted: counts are clamped to their table, texts end with their field.
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "readers/metric_words.h"

namespace ostrum_tool {

inline constexpr const char* default_data_file = "ostrum_data.dat"; // as hosts name it unless configured
inline constexpr size_t data_file_bytes = 5'800'544;

struct operation_counter {
    std::string opname, program, fname, obj_type;
    int32_t opcode = 0;
    uint32_t opflags = 0;
    int32_t lineno = 0;
    int64_t db_number = 0;
    uint64_t recs = 0, calls = 0, errors = 0;
    uint64_t total_tv = 0, user_cpu_tv = 0, sys_cpu_tv = 0; // ns
};

struct error_counter {
    std::string opname, program;
    int64_t dbno = 0;
    int32_t opcode = 0;
    uint32_t err_class = 0, location = 0, errnum = 0;
    uint64_t count = 0;
};

struct variable {
    std::string name, value;
};

using metric_values = std::array<uint64_t, metric_words>;

struct data_file {
    int32_t pid = 0; // of the host process that last opened the file
    std::vector<operation_counter> counters;
    std::vector<error_counter> errors;
    std::vector<variable> variables;
    int64_t variables_changed_tv = 0; // ns since the epoch; 0 = unknown
    metric_values metrics{};
    std::vector<std::string> problems; // what in the file cannot be right
};

// Throws input_error when the path is not a readable regular file of exactly data_file_bytes.
data_file read_data_file(const std::string& path);

// A private copy of the whole file. Throws as read_data_file does.
std::vector<unsigned char> read_data_image(const std::string& path);

// What in an image cannot be right: its offset and a line about it. `image` holds data_file_bytes.
struct data_problem {
    uint64_t offset = 0;
    std::string what;
};
std::vector<data_problem> check_data_image(std::span<const unsigned char> image);

// `image` holds data_file_bytes.
data_file decode_data_file(std::span<const unsigned char> image);

} // namespace ostrum_tool
#endif
