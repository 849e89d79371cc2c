// Signals; the first word of each command is one, as in HUP.
#include <csignal>
#include <ctime>
#include <map>

#include <unistd.h>

#include "ostrum.h"
#include "support/host/call_checks.h"
#include "support/host/script.h"

namespace {

std::map<int, const script*>& signal_scripts = *new std::map<int, const script*>;

void run_at_signal(const command& c)
{
    signal_scripts[c.signal()] = &c.block;
    signal(c.signal(), [](int n) { run(*signal_scripts.at(n)); });
}

void let_interrupt(const command& c)
{
    struct sigaction action {}; // without SA_RESTART
    action.sa_handler = [](int) { ++interrupted; };
    sigaction(c.signal(), &action, nullptr);
}

void run_in_storm(const command& c)
{
    sigevent to_this_thread{};
    to_this_thread.sigev_notify = SIGEV_THREAD_ID;
    to_this_thread.sigev_signo = c.signal();
    to_this_thread._sigev_un._tid = gettid();
    const long apart_tv = c.number(1) * 1'000L;
    const itimerspec times{{0, apart_tv}, {0, apart_tv}};
    timer_t timer{};
    report_bad(timer_create(CLOCK_MONOTONIC, &to_this_thread, &timer) != 0 ||
                   timer_settime(timer, 0, &times, nullptr) != 0,
               "timer");
    run(c.block);
    timer_delete(timer);
}

} // namespace

const command_table& signal_commands = *new command_table{
    {"raise", [](const command& c) { raise(c.signal()); }},
    {"on_signal", run_at_signal}, // SIG {..}
    {"interrupt", let_interrupt}, // SIG: cuts system calls short from now on
    {"storm", run_in_storm}, // SIG US {..}: SIG to this thread every US microseconds while it runs the block
    {"alarm", [](const command& c) { ualarm(static_cast<useconds_t>(c.number(0)) * 1000, 0); }}, // MS
    {"fatal_handler", [](const command& c) { signal(c.signal(), ostrum_fatal_sig_handler); }},
};
