// The system calls of steady pairs, counted by a parent that traces a child.
#include <csignal>

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include "calls.h"
#include "scenarios.h"

namespace ostrum_bench {
namespace {

constexpr int counted_walks = 50'000; // of 20 pairs each
constexpr int warming_walks = 1'000;

// A harmless call that fails, with an argument that nobody else uses, stands at the two ends.
constexpr uint64_t marker_argument = 0x05157;
void mark()
{
    syscall(SYS_getpriority, marker_argument, 0);
}

[[noreturn]] void run_traced_pairs()
{
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    start_library();
    for (int walk = 0; walk < warming_walks; ++walk) {
        call_tree(tree_walk());
    }
    mark();
    for (int walk = 0; walk < counted_walks; ++walk) {
        call_tree(tree_walk());
    }
    mark();
    _exit(0);
}

enum class traced_call { none, marker, other };

traced_call entered_call(pid_t thread)
{
    __ptrace_syscall_info info{};
    if (ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof(info), &info) <= 0 ||
        info.op != PTRACE_SYSCALL_INFO_ENTRY) {
        return traced_call::none;
    }
    const bool is_marker = info.entry.nr == SYS_getpriority && info.entry.args[0] == marker_argument;
    return is_marker ? traced_call::marker : traced_call::other;
}

// Runs the child from stop to stop. Returns the number of calls between its two markers; below 0 when it
// did not come by both.
int count_calls(pid_t child)
{
    constexpr int stop_of_call = SIGTRAP | 0x80;
    int status = 0;
    int markers = 0;
    int calls = 0;
    if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) {
        return -1;
    }
    ptrace(PTRACE_SETOPTIONS, child, nullptr,
           PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL);
    ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    for (pid_t thread = 0; (thread = waitpid(-1, &status, __WALL)) > 0;) {
        if (!WIFSTOPPED(status)) {
            continue;
        }
        const bool at_call = WSTOPSIG(status) == stop_of_call;
        const traced_call call = at_call ? entered_call(thread) : traced_call::none;
        markers += call == traced_call::marker ? 1 : 0;
        calls += call == traced_call::other && markers == 1 ? 1 : 0;
        ptrace(PTRACE_SYSCALL, thread, nullptr, nullptr);
    }
    return markers == 2 && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? calls : -1;
}

} // namespace

samples measure_system_calls(int repetitions)
{
    samples values;
    for (int done = 0; done < repetitions; ++done) {
        const pid_t child = fork();
        if (child == 0) {
            run_traced_pairs();
        }
        const int calls = count_calls(child);
        if (calls < 0) {
            throw skipped("the system calls cannot be counted: is tracing a child forbidden?");
        }
        values["system calls"].push_back(calls);
        values[floor_name].push_back(floor_once());
    }
    return values;
}

} // namespace ostrum_bench
