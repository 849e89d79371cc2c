#ifndef OSTRUM_TESTS_TOOL_TOOL_FIXTURE_H
#define OSTRUM_TESTS_TOOL_TOOL_FIXTURE_H
// Texts of trace data files, and the tool run in this process on them.
#include <sstream>
#include <string>
#include <vector>

#include "cli/command.h"
#include "support/temp_dir.h"

namespace tool_test {

inline std::string frame_start(int64_t from_s = 1'700'000'000, int pid = 10, int tid = 77)
{
    return "S,0,0,-2,0,VRT_OP_ELAPSED," + std::to_string(from_s) + ".000000000,source/f.cpp,2240," +
           std::to_string(pid) + "," + std::to_string(tid) + ",prog,0,,0\n";
}

inline const std::string frame_end = "F,1700000100.000000000,0,1,0,0,0,0,0,0,0,0,0\n";

inline std::string start(int level, int opcode, const std::string& name, const std::string& program = "prog",
                         int bucket = 0, int pid = 10, int tid = 77)
{
    return "S," + std::to_string(level) + ",0," + std::to_string(opcode) + ",0," + name + ",0,a.c,12," +
           std::to_string(pid) + "," + std::to_string(tid) + "," + program + "," + std::to_string(bucket) +
           ",/part,1\n";
}

// Of each call 2 records, of each line 1 error; shortest 100 ms, longest 900 ms.
inline std::string end(const std::string& total, int calls, const std::string& bounds = "0,0", int errors = 1)
{
    return "F," + total + ",2," + std::to_string(calls) + ",0.100000000,0.900000000," + bounds + ",0,0," +
           std::to_string(errors) + ",0,0\n";
}

inline std::string block(const std::string& paths)
{
    return frame_start() + paths + frame_end;
}

struct tool_run {
    int status;
    std::string out, err;
};

inline tool_run run(const std::vector<std::string>& words, const ostrum_tool::text_style& style = {})
{
    std::ostringstream out;
    std::ostringstream err;
    const int status = ostrum_tool::run_tool(words, {out, err, style, false});
    return {status, out.str(), err.str()};
}

// A command, and what a case adds to it.
inline tool_run run_with(std::vector<std::string> words, const std::vector<std::string>& more,
                         const ostrum_tool::text_style& style = {})
{
    words.insert(words.end(), more.begin(), more.end());
    return run(words, style);
}

} // namespace tool_test
#endif
