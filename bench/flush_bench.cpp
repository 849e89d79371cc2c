// What a flush costs the thread that writes, and a plain writer of the same lines beside it.
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "calls.h"
#include "scenarios.h"
#include "stdio_writer.h"
#include "waiting.h"

namespace ostrum_bench {
namespace {

constexpr int contexts_a_second = 7;

// The keyed contexts of a process share this file.
std::filesystem::path trace_file()
{
    for (const auto& entry : std::filesystem::directory_iterator(".")) {
        if (entry.path().string().ends_with(".plog.txt")) {
            return entry.path();
        }
    }
    throw std::runtime_error("there is no trace file");
}

// The end of an outermost operation that writes as many records as the operation has paths. Returns
// nanoseconds; throws when it wrote nothing.
double flush_ns(int32_t key, std::span<const uint32_t> callees)
{
    start_keyed(key, outer_opcode, "outer");
    call_keyed_siblings(key, callees);
    const uintmax_t bytes_before = std::filesystem::file_size(trace_file());
    const double ns = elapsed_ns(CLOCK_THREAD_CPUTIME_ID, [key] { end_keyed(key, outer_opcode, "outer"); });
    if (std::filesystem::file_size(trace_file()) < bytes_before + callees.size()) {
        throw std::runtime_error("an end that was to flush has not written");
    }
    return ns;
}

std::string text_behind(const std::filesystem::path& path, uintmax_t offset)
{
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(offset));
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Those lines again, into a file beside the trace file. Throws unless the texts are the same.
double stdio_ns(const std::string& text)
{
    constexpr const char* path = "stdio.txt";
    const std::vector<trace_line> lines = parse_trace(text);
    FILE* file = std::fopen(path, "w");
    if (file == nullptr) {
        throw std::runtime_error("cannot write stdio.txt");
    }
    const double ns = elapsed_ns(CLOCK_THREAD_CPUTIME_ID, [&] { write_with_stdio(file, lines); });
    std::fclose(file);
    if (text_behind(path, 0) != text) {
        throw std::runtime_error("the plain writer's lines differ from the library's");
    }
    return ns;
}

void measure_one_flush(int32_t key, int records, samples& values)
{
    const std::vector<uint32_t> callees = shuffled_opcodes(records - 1);
    const std::string of_records = ", records: " + std::to_string(records);
    const uintmax_t written_before = std::filesystem::file_size(trace_file());
    values["flush of one" + of_records].push_back(flush_ns(key, callees) / records);
    values["fprintf of one" + of_records].push_back(stdio_ns(text_behind(trace_file(), written_before)) /
                                                    records);
    values[floor_name].push_back(floor_once());
}

} // namespace

samples measure_flush(int repetitions)
{
    samples values;
    start_library();
    for (int32_t key = 0; key < 2 * contexts_a_second; ++key) {
        start_keyed(key, outer_opcode, "outer"); // the file is opened, the flush times begin
        end_keyed(key, outer_opcode, "outer");
    }
    for (int done = 0; done < repetitions; ++done) {
        const int32_t key = done % contexts_a_second;
        if (key == 0) {
            wait_for_next_second();
        }
        measure_one_flush(key, 1'000, values);
        measure_one_flush(key + contexts_a_second, 10'000, values);
    }
    return values;
}

} // namespace ostrum_bench
