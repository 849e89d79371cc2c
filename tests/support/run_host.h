#ifndef OSTRUM_TESTS_SUPPORT_RUN_HOST_H
#define OSTRUM_TESTS_SUPPORT_RUN_HOST_H
// Runs a script in a host process of its own (tests/support/host/script_host.cpp), in a directory that
// begins empty unless one is given.
#include <memory>
#include <string>
#include <vector>

#include "support/temp_dir.h"

// A setting of the library, or another variable of the environment, as its upper-cased key. Null: not set.
struct host_setting {
    const char* key;
    const char* value;
};

struct host_options {
    std::shared_ptr<temp_dir> directory; // the working directory; null: a new one
    bool signal_handlers = false;        // the host exports sigsegv_handler and sigbus_handler
    const char* program = nullptr;       // another host, which gets the script as its argument
    int patience_s = 60;                 // a host that takes longer hangs
};

struct host_run {
    int exit_status = -1; // 128 + number of the signal that ended it; -1: it hung and was stopped
    double took_s = 0;
    std::string errors; // standard error without the time and ids before each message
    std::string output;
    std::shared_ptr<temp_dir> directory;

    [[nodiscard]] int lines_with(const std::string& part) const; // of standard error
    [[nodiscard]] bool logging_enabled() const;
    [[nodiscard]] std::vector<std::string> files_ending(const std::string& end) const
    {
        return directory->files_ending(end);
    }
    [[nodiscard]] std::string text_of_files(const std::string& end) const { return directory->text_of(end); }
};

host_run run_host(const std::vector<host_setting>& settings, const std::string& script,
                  const host_options& options = {});
#endif
