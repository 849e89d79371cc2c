// The end of the process, and what the host reports there.
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "robustness/fault_shim.h"
#include "support/host/call_checks.h"
#include "support/host/script.h"

namespace {

std::atomic<long> finished_before_exit{0};

int open_descriptors()
{
    int count = 0;
    for (int fd = 0; fd < 1024; ++fd) {
        count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    }
    return count;
}

void exit_by_handlers(const command& c)
{
    finished_before_exit = finished.load();
    exit(c.number(0));
}

// Registered before the library is started: it runs after the library's own exit handler.
void report_at_exit()
{
    rlimit file_size{};
    getrlimit(RLIMIT_FSIZE, &file_size);
    file_size.rlim_cur = file_size.rlim_max;
    setrlimit(RLIMIT_FSIZE, &file_size);
    dprintf(report_fd, "issued=%ld\nfinished=%ld\nleft_open=%d\ninterrupted=%ld\nslowest_us=%ld\n",
            issued.load(), finished_before_exit.load(), open_descriptors(), interrupted.load(),
            slowest_tv / 1000);
}

void start_oracle(const command&)
{
    report_fd = fcntl(STDOUT_FILENO, F_DUPFD, fault_report_fd);
    atexit(report_at_exit);
    at_quick_exit(report_at_exit);
}

} // namespace

const command_table& ending_commands = *new command_table{
    {"exit", exit_by_handlers},
    {"quick_exit", [](const command& c) { quick_exit(c.number(0)); }}, // without exit handlers, as the next
    {"_exit", [](const command& c) { _exit(c.number(0)); }},
    {"descriptors", [](const command&) { dprintf(STDOUT_FILENO, "descriptors=%d\n", open_descriptors()); }},
    // At exit: "issued=HOOK-PAIRS", "finished=HOOK-PAIRS" that had returned before the command "exit",
    // "left_open=DESCRIPTORS", "interrupted=TIMES", "slowest_us=TIME" of the slowest hook.
    {"oracle", start_oracle},
};
