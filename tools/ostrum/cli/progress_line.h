#ifndef OSTRUM_TOOL_CLI_PROGRESS_LINE_H
#define OSTRUM_TOOL_CLI_PROGRESS_LINE_H
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

#include "cli/command.h"
#include "readers/trace_set.h"

namespace ostrum_tool {

// Shows, on a terminal as standard error, how far a reading is that takes longer than a second; the line
// goes when this does.
class progress_line {
public:
    progress_line(const read_progress& progress, const streams& to);
    ~progress_line();
    progress_line(const progress_line&) = delete;
    progress_line& operator=(const progress_line&) = delete;

private:
    void show_until_done(const read_progress& progress, std::ostream& err);

    std::mutex lock_;
    std::condition_variable wake_;
    bool done_ = false; // guarded by lock_
    std::optional<std::thread> thread_;
};

} // namespace ostrum_tool
#endif
