// In place of the fuzzer, in ordinary builds: gives a target every file of its corpus. The seeds it gives
// once more, repeated to two sizes: that fills whatever table there is, and the larger must not take more
// than its share of time.
#include <algorithm>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>

#include "fuzz/fuzz_target.h"
#include "support/temp_dir.h"

// Only in a program with a sanitizer, whose reports are to be seen nevertheless.
extern "C" [[gnu::weak]] void __sanitizer_set_report_fd(void* fd);

namespace {

constexpr size_t small_bytes = 16UL * 1024;
constexpr size_t large_bytes = 8 * small_bytes;
constexpr double most_growth = 24; // 8 would be linear, 64 quadratic
constexpr double least_s = 0.02;   // below that nothing is told from noise

void silence_messages()
{
    if (__sanitizer_set_report_fd != nullptr) {
        __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<intptr_t>(fuzz::report_fd)));
    }
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
}

double processor_s()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double seconds_for(const std::string& input)
{
    const double begun_s = processor_s();
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
    return processor_s() - begun_s;
}

std::string repeated(const std::string& input, size_t bytes)
{
    std::string all;
    while (!input.empty() && all.size() < bytes) {
        all += input;
    }
    return all;
}

void check_growth(const std::string& input)
{
    const std::string small = repeated(input, small_bytes);
    const std::string large = repeated(input, large_bytes);
    const double small_s = std::min(seconds_for(small), seconds_for(small));
    const double large_s = seconds_for(large);
    fuzz::must(large_s < least_s || large_s < small_s * most_growth, "time grows with the input's length",
               std::to_string(small_s) + " s become " + std::to_string(large_s) + " s");
}

std::vector<std::string> files_of(const std::string& folder)
{
    std::vector<std::string> files;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator(folder, missing)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace

// FOLDER: of the corpus.
int main(int argc, char** argv)
{
    const std::vector<std::string> files = files_of(argc > 1 ? argv[1] : "");
    fuzz::must(!files.empty(), "there is a corpus");
    silence_messages();
    for (const std::string& file : files) {
        dprintf(fuzz::report_fd, "%s\n", file.c_str()); // the last one is the culprit
        const std::string input = temp_dir::read(file);
        seconds_for(input);
        if (file.find("/seed_") != std::string::npos) {
            check_growth(input);
        }
    }
    return 0;
}
