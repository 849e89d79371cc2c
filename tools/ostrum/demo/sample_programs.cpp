#include "demo/sample_programs.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string_view>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tool_errors.h"

namespace ostrum_tool {
namespace {

std::vector<std::string> usual_places()
{
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    const auto place = program.parent_path();
    return {place.string(), (place.parent_path() / "libexec/ostrum").string()};
}

std::vector<char*> pointers_to(std::vector<std::string>& words)
{
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// The run is to look the same for everybody.
std::vector<std::string> environment_without_settings()
{
    std::vector<std::string> kept;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        if (!std::string_view(*variable).starts_with("OSTRUM_")) {
            kept.emplace_back(*variable);
        }
    }
    return kept;
}

// In the child. Comes back only when something failed.
void become(char* const* words, char* const* environment, const char* directory, const char* log_file)
{
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    const int log = ::open(log_file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (log < 0 || ::dup2(log, STDOUT_FILENO) < 0 || ::dup2(log, STDERR_FILENO) < 0 ||
        ::chdir(directory) != 0) {
        return;
    }
    ::execve(words[0], words, environment);
    const char* const why = std::strerror(errno);
    static_cast<void>(::write(log, why, std::strlen(why)));
}

} // namespace

sample_programs find_sample_programs(const std::string& directory)
{
    // Absolute, as they run in another directory.
    const auto places =
        directory.empty() ? usual_places() : std::vector{std::filesystem::absolute(directory).string()};
    std::string looked_at;
    for (const std::string& place : places) {
        std::error_code error;
        sample_programs found{place + "/catalog_server", place + "/catalog_client", place + "/catalog_data"};
        if (::access(found.server.c_str(), X_OK) == 0 && ::access(found.client.c_str(), X_OK) == 0 &&
            std::filesystem::is_directory(found.settings, error)) {
            return found;
        }
        looked_at += (looked_at.empty() ? "" : " nor in ") + place;
    }
    throw input_error("the sample programs are not in " + looked_at +
                      ": catalog_server, catalog_client and catalog_data come with the sources, in examples");
}

running_program::running_program(std::vector<std::string> words, const std::string& directory,
                                 const std::string& log_file)
{
    std::vector<std::string> environment = environment_without_settings();
    const std::vector<char*> word_pointers = pointers_to(words);
    const std::vector<char*> variable_pointers = pointers_to(environment);
    process_ = ::fork();
    if (process_ == 0) {
        become(word_pointers.data(), variable_pointers.data(), directory.c_str(), log_file.c_str());
        ::_exit(127);
    }
    if (process_ < 0) {
        throw input_error(words.front() + ": " + std::strerror(errno));
    }
}

running_program::~running_program()
{
    if (!has_ended()) {
        stop();
        exit_status();
    }
}

void running_program::stop() const
{
    if (!status_) {
        ::kill(process_, SIGTERM);
    }
}

bool running_program::has_ended()
{
    int status = 0;
    if (!status_ && ::waitpid(process_, &status, WNOHANG) == process_) {
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return status_.has_value();
}

int running_program::exit_status()
{
    siginfo_t ended{};
    while (!status_ && ::waitid(P_PID, static_cast<id_t>(process_), &ended, WEXITED | WNOWAIT) != 0 &&
           errno == EINTR) {
    }
    return has_ended() ? *status_ : -1;
}

} // namespace ostrum_tool
