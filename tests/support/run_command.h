#ifndef OSTRUM_TESTS_SUPPORT_RUN_COMMAND_H
#define OSTRUM_TESTS_SUPPORT_RUN_COMMAND_H
// Runs a program of the build and keeps what it says.
#include <cstdio>
#include <regex>
#include <string>

#include <sys/wait.h>

struct command_run {
    int exit_status = -1;
    std::string output; // both streams; each row of blanks as one
    [[nodiscard]] bool shows(const std::string& part) const { return output.find(part) != std::string::npos; }
    // The number behind a label; -1 when there is none.
    [[nodiscard]] long long figure(const std::string& label) const
    {
        const size_t at = output.find(label + " ");
        return at == std::string::npos ? -1 : std::stoll(output.substr(at + label.size()));
    }
};

inline command_run run_command(const std::string& command)
{
    command_run run;
    // NOLINTNEXTLINE(cert-env33-c): the words of the command are the test's own
    FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return run;
    }
    for (char part[1024]; fgets(part, sizeof(part), pipe) != nullptr;) {
        run.output += part;
    }
    const int status = pclose(pipe);
    run.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.output = std::regex_replace(run.output, std::regex(" +"), " ");
    return run;
}
#endif
