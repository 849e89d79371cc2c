#ifndef OSTRUM_TOOL_DEMO_SAMPLE_PROGRAMS_H
#define OSTRUM_TOOL_DEMO_SAMPLE_PROGRAMS_H
// The sample server and its client: where they are, and how they are run.
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace ostrum_tool {

struct sample_programs {
    std::string server, client;
    std::string settings; // directory of their files
};

// In `directory`; of an empty one beside this program, as in a build tree, or where the samples are
// installed. Throws input_error, which names the places.
sample_programs find_sample_programs(const std::string& directory);

// A program that runs in a directory, with what it says in a file and none of the caller's tracing settings.
// One that still runs when this goes, or when the tool dies, gets a SIGTERM.
class running_program {
public:
    running_program(std::vector<std::string> words, const std::string& directory,
                    const std::string& log_file);
    ~running_program();
    running_program(const running_program&) = delete;
    running_program& operator=(const running_program&) = delete;

    void stop() const; // only asks it to
    [[nodiscard]] bool has_ended();
    // Waits. 128 and the number of the signal that ended it.
    int exit_status();

private:
    pid_t process_ = -1;
    std::optional<int> status_;
};

} // namespace ostrum_tool
#endif
