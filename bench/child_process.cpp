#include "child_process.h"

#include <cstdlib>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ostrum_bench {
namespace {

[[noreturn]] void become_child(const std::string& directory, std::vector<char*>& arguments,
                               const std::vector<std::pair<const char*, const char*>>& environment)
{
    for (const auto& [name, value] : environment) {
        setenv(name, value, 1);
    }
    const int output = chdir(directory.c_str()) == 0
                           ? open("output.txt", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)
                           : -1;
    if (output >= 0 && dup2(output, STDOUT_FILENO) >= 0 && dup2(output, STDERR_FILENO) >= 0) {
        execv("/proc/self/exe", arguments.data());
    }
    _exit(127);
}

} // namespace

bool run_self(const std::string& directory, const std::vector<std::string>& words,
              const std::vector<std::pair<const char*, const char*>>& environment)
{
    std::vector<std::string> copies{"ostrum_bench"};
    copies.insert(copies.end(), words.begin(), words.end());
    std::vector<char*> arguments;
    arguments.reserve(copies.size() + 1);
    for (std::string& word : copies) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        become_child(directory, arguments, environment);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace ostrum_bench
