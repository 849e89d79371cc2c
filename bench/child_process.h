#ifndef OSTRUM_BENCH_CHILD_PROCESS_H
#define OSTRUM_BENCH_CHILD_PROCESS_H
#include <string>
#include <utility>
#include <vector>

namespace ostrum_bench {

// Runs this very program in a directory, with those words and environment values; its two output
// streams go to the file "output.txt" there. Returns true when it ended with status 0.
bool run_self(const std::string& directory, const std::vector<std::string>& words,
              const std::vector<std::pair<const char*, const char*>>& environment);

} // namespace ostrum_bench
#endif
