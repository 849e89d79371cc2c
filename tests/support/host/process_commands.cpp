// Threads, forks and time.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <fcntl.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#endif

#include "support/host/call_checks.h"
#include "support/host/script.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

void repeat(const command& c)
{
    for (int n = c.number(0); n > 0; --n) {
        run(c.block);
    }
}

void repeat_during(const command& c)
{
    for (const auto end = steady_clock::now() + milliseconds(c.number(0)); steady_clock::now() < end;) {
        run(c.block);
    }
}

void repeat_until(const command& c)
{
    while (access(c.text(0).c_str(), F_OK) != 0) {
        run(c.block);
    }
}

// Everyone who comes adds a byte to a file.
void meet(const command& c)
{
    const int fd = open(c.text(0).c_str(), O_WRONLY | O_APPEND | O_CREAT, 0600);
    (void)!write(fd, "!", 1);
    while (lseek(fd, 0, SEEK_END) < c.number(1)) {
        std::this_thread::sleep_for(microseconds(100));
    }
    close(fd);
}

// ---- Threads ----

pthread_t start_thread(const command& c, const pthread_attr_t* kind = nullptr)
{
    pthread_t thread{};
    const auto body = [](void* block) -> void* {
        run(*static_cast<const script*>(block)); // the whole script lives to the end
        return nullptr;
    };
    return pthread_create(&thread, kind, body, const_cast<script*>(&c.block)) == 0 ? thread : 0;
}

void join_all(std::vector<pthread_t>& threads)
{
    for (const pthread_t thread : threads) {
        if (thread != 0) {
            pthread_join(thread, nullptr);
        }
    }
    threads.clear();
}

std::vector<pthread_t>& spawned = *new std::vector<pthread_t>; // by the main thread

void run_threads(const command& c)
{
    std::vector<pthread_t> running;
    for (int n = c.number(0, 1); n > 0; --n) {
        running.push_back(start_thread(c));
    }
    join_all(running);
}

void run_on_small_stack(const command& c)
{
    pthread_attr_t kind;
    pthread_attr_init(&kind);
    pthread_attr_setstacksize(&kind, static_cast<size_t>(c.number(0)) * 1024);
    std::vector<pthread_t> one{start_thread(c, &kind)};
    join_all(one);
    pthread_attr_destroy(&kind);
}

// The moment of each cancellation is another one, within the first half millisecond.
void cancel_threads(const command& c)
{
    for (int n = 0; n < c.number(0); ++n) {
        std::vector<pthread_t> one{start_thread(c)};
        std::this_thread::sleep_for(microseconds((n * 7 + c.number(1) * 131) % 500));
        pthread_cancel(one[0]);
        join_all(one);
    }
}

void end_if_cancelled(const command&)
{
#ifdef __SANITIZE_ADDRESS__
    __asan_handle_no_return(); // the sanitizer does not see the frames go
#endif
    pthread_testcancel();
}

// ---- Forks ----

int status_of_child(pid_t child)
{
    const auto forked = steady_clock::now();
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (steady_clock::now() > forked + std::chrono::seconds(10)) {
            kill(child, SIGKILL);
        }
        std::this_thread::sleep_for(microseconds(200));
    }
    report_bad(steady_clock::now() > forked + std::chrono::seconds(2), "child that does not end");
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void run_child(const command& c)
{
    const pid_t child = fork();
    if (child == 0) {
        issued = 0;
        finished = 0;
        spawned.clear();
        run(c.block);
        exit(0);
    }
    dprintf(STDOUT_FILENO, "child=%d\n", status_of_child(child));
}

void become_another_host(const command& c)
{
    std::string commands = c.all_words();
    std::replace(commands.begin(), commands.end(), ',', ';');
    execl("/proc/self/exe", "script_host", commands.c_str(), nullptr);
    _exit(97);
}

} // namespace

const command_table& process_commands = *new command_table{
    {"repeat", repeat},        // N {..}
    {"during", repeat_during}, // MS {..}
    {"until", repeat_until},   // NAME {..}: until there is a file of that name
    {"sleep", [](const command& c) { std::this_thread::sleep_for(milliseconds(c.number(0))); }},
    {"pause", [](const command& c) { std::this_thread::sleep_for(microseconds(c.number(0))); }},
    {"meet", meet}, // NAME N: waits until so many hosts of the directory have come to NAME
    // {..}, and N {..}: run at the same time and joined
    {"thread", run_threads},
    {"threads", run_threads},
    {"small_stack", run_on_small_stack}, // KIB {..}: a thread with so small a stack, joined
    {"spawn", [](const command& c) { spawned.push_back(start_thread(c)); }}, // {..}: joined by await only
    {"await", [](const command&) { join_all(spawned); }},
    {"cancel", cancel_threads}, // N SEED {..}: N times a thread is cancelled while it runs the block
    {"cancel_point", end_if_cancelled},
    {"fork", run_child}, // {..}: the child exits 0 or, after 10 seconds, is killed; prints "child=STATUS"
    {"exec", become_another_host}, // COMMAND, COMMAND ...
};
