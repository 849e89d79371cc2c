// What surrounds the host: descriptors, its user, the clock, the faults that a preloaded shim plants.
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#include "robustness/fault_shim.h"
#include "support/host/script.h"

namespace {

// One that nobody reads from: who writes to it waits for ever, or finds it broken.
int pipe_end(bool full)
{
    int ends[2] = {-1, -1};
    (void)!pipe2(ends, O_NONBLOCK);
    if (!full) {
        close(ends[0]);
    }
    while (full && write(ends[1], "x", 1) == 1) {
    }
    fcntl(ends[1], F_SETFL, 0);
    return ends[1];
}

void redirect(const command& c)
{
    const std::string path = c.text(1);
    const bool is_pipe = path == "full_pipe" || path == "broken_pipe";
    const int fd = is_pipe ? pipe_end(path == "full_pipe") : open(path.c_str(), O_WRONLY);
    dup2(fd, c.number(0));
    close(fd);
}

// The C library's own time() is not the shim's.
long now_s()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

void set_clock(long by_s, long nth = 0)
{
    if (shim_step_clock != nullptr) {
        shim_step_clock(nth, by_s);
    }
}

void arm_fault(const command& c)
{
    if (shim_fault != nullptr) {
        shim_fault(c.text(0).c_str(), c.number(1), c.number(2), c.number(3));
    }
}

void await_fault(const command&)
{
    while (shim_faults_hit != nullptr && shim_faults_hit() == 0) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

} // namespace

const command_table& surroundings_commands = *new command_table{
    {"close", [](const command& c) { close(c.number(0)); }},
    {"redirect", redirect}, // FD PATH; full_pipe or broken_pipe: such a pipe
    {"user", [](const command& c) { (void)!setuid(static_cast<uid_t>(c.number(0))); }}, // gives up root
    // NOLINTNEXTLINE(cert-env33-c): the words of the command are the test's own
    {"shell", [](const command& c) { (void)!system(c.all_words().c_str()); }},
    // With the shim: the wall clock is set to that second, or by so many, at once or when the library reads
    // it for the Nth time from now on.
    {"clock_at", [](const command& c) { set_clock(std::stol(c.text(0)) - now_s()); }},
    {"clock_step", [](const command& c) { set_clock(c.number(0), c.number(1)); }},
    {"fault", arm_fault},         // CALL NTH ERROR [1]: see the shim
    {"await_fault", await_fault}, // until the first one has been hit
};
