// The correlation identifier of the calling thread, "host:pid:program:thread" unless one was set. Kept in
// plain thread-local arrays: they can still be read while the thread or the process ends.
#include "qel_platform.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr size_t correlation_bytes = 512;

struct thread_texts {
    char chosen[correlation_bytes];
    bool is_chosen;
    char by_default[correlation_bytes];
    uint32_t made_in; // process generation of by_default; 0 = not made yet
};
thread_local constinit thread_texts texts{};

// Counts forks: the default names the process, and asking for its id each time would cost a system call.
std::atomic<uint32_t> process_generation{0};

void next_generation()
{
    ++process_generation;
}

void watch_forks()
{
    ++process_generation;
    pthread_atfork(nullptr, nullptr, next_generation);
}

uint32_t current_generation()
{
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, watch_forks);
    return process_generation;
}

// A ':' inside a field would shift the fields behind it.
void without_separators(char* text)
{
    std::replace(text, text + strlen(text), ':', '_');
}

void make_default(thread_texts& mine)
{
    char host[65] = "";
    gethostname(host, sizeof(host) - 1);
    without_separators(host);
    char program[256] = "";
    qel_strlcpy(program, program_invocation_short_name, sizeof(program));
    without_separators(program);
    snprintf(mine.by_default, sizeof(mine.by_default), "%s:%d:%s:%ld", host, getpid(), program,
             syscall(SYS_gettid));
}

} // namespace

const char* qellog_get_correlation(void)
{
    if (texts.is_chosen) {
        return texts.chosen;
    }
    const uint32_t generation = current_generation();
    if (texts.made_in != generation) {
        make_default(texts);
        texts.made_in = generation;
    }
    return texts.by_default;
}

void qellog_set_correlation(const char* text)
{
    texts.is_chosen = text != nullptr;
    qel_strlcpy(texts.chosen, text != nullptr ? text : "", sizeof(texts.chosen));
}
