#include "process_signals.h"

#include <cerrno>
#include <csignal>
#include <system_error>

#include <sys/signalfd.h>
#include <unistd.h>

namespace catalog {
namespace {

sigset_t handled_signals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGTERM, SIGINT, SIGCHLD})
        sigaddset(&set, number);
    return set;
}

} // namespace

void block_signals()
{
    const sigset_t set = handled_signals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

unique_fd open_signal_fd()
{
    const sigset_t set = handled_signals();
    unique_fd fd{signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK)};
    if (fd.get() < 0)
        throw std::system_error(errno, std::generic_category(), "signalfd");
    return fd;
}

pending_signals take_signals(const unique_fd& signals)
{
    pending_signals pending;
    signalfd_siginfo info{};
    while (read(signals.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        if (info.ssi_signo == SIGCHLD)
            pending.child_changed = true;
        else
            pending.stop = true;
    }
    return pending;
}

} // namespace catalog
