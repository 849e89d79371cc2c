#include "support/run_host.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Of two of a name the first counts. Nothing of this process's own settings, and one time zone for all.
std::vector<std::string> host_environment(const std::vector<host_setting>& settings)
{
    std::vector<std::string> variables;
    for (const host_setting& setting : settings) {
        if (setting.value != nullptr) {
            std::string name = setting.key;
            std::transform(name.begin(), name.end(), name.begin(), toupper);
            variables.push_back(name.append("=").append(setting.value));
        }
    }
    variables.emplace_back("TZ=UTC");
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string text = *variable;
        if (text.rfind("OSTRUM_", 0) != 0 && text.rfind("QEL_", 0) != 0) {
            variables.push_back(text);
        }
    }
    return variables;
}

std::vector<char*> pointers_to(std::vector<std::string>& texts)
{
    std::vector<char*> pointers(texts.size() + 1, nullptr);
    std::transform(texts.begin(), texts.end(), pointers.begin(),
                   [](std::string& text) { return text.data(); });
    return pointers;
}

void redirect(int fd, const std::string& path)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, fd);
    close(file);
}

int exit_status_of(pid_t child, std::chrono::seconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Length of the time and ids in front of a message; 0 where none begins.
size_t prefix_length(const char* text)
{
    const char* at = text;
    // 0 is a digit, 9 some of them
    for (const char* expected = "0000/00/00 00:00:00.000000 (9/9) : "; *expected != '\0'; ++expected) {
        const bool is_number = *expected == '0' || *expected == '9';
        const size_t digits = is_number ? strspn(at, "0123456789") : 0;
        if (is_number ? digits == 0 : *at != *expected) {
            return 0;
        }
        at += *expected == '9' ? digits : 1;
    }
    return static_cast<size_t>(at - text);
}

std::string without_prefixes(const std::string& text)
{
    std::string messages;
    for (size_t at = 0; at < text.size();) {
        const size_t skipped = prefix_length(text.c_str() + at);
        if (skipped == 0) {
            messages.push_back(text[at]);
        }
        at += skipped == 0 ? 1 : skipped;
    }
    return messages;
}

} // namespace

host_run run_host(const std::vector<host_setting>& settings, const std::string& script,
                  const host_options& options)
{
    const temp_dir streams; // apart from the files under test
    host_run run;
    run.directory = options.directory ? options.directory : std::make_shared<temp_dir>();
    const char* program = options.program != nullptr ? options.program
                          : options.signal_handlers  ? OSTRUM_SCRIPT_HOST "_with_handlers"
                                                     : OSTRUM_SCRIPT_HOST;
    std::vector<std::string> arguments{program, script};
    std::vector<std::string> variables = host_environment(settings);
    const std::vector<char*> argument_pointers = pointers_to(arguments);
    const std::vector<char*> variable_pointers = pointers_to(variables);
    const auto begun = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        redirect(STDOUT_FILENO, streams.file("output"));
        redirect(STDERR_FILENO, streams.file("errors"));
        if (chdir(run.directory->path().c_str()) == 0) {
            execve(program, argument_pointers.data(), variable_pointers.data());
        }
        _exit(97);
    }
    run.exit_status = exit_status_of(child, std::chrono::seconds(options.patience_s));
    run.took_s = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    run.errors = without_prefixes(temp_dir::read(streams.file("errors")));
    run.output = temp_dir::read(streams.file("output"));
    return run;
}

int host_run::lines_with(const std::string& part) const
{
    std::istringstream lines(errors);
    int count = 0;
    for (std::string line; std::getline(lines, line);) {
        count += line.find(part) != std::string::npos ? 1 : 0;
    }
    return count;
}

bool host_run::logging_enabled() const
{
    return lines_with("initialise_ostrum : ostrum initialisation OK - logging enabled") == 1;
}
