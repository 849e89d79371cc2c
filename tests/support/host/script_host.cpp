// A host process in miniature, driven by a script: what happens once per process (start-up, exit, forks,
// signals) is tested by running it. usage: script_host SCRIPT
//
// A script is commands separated by ';' or line ends; a block of them stands in braces.
//   init | init_quiet                  calls it and prints "init=RESULT"
//   start OPCODE [NAME]                end [OPCODE [ERRNUM]]   without an opcode: that of the last start
//   start_fn NAME                      end_fn NAME [ERROR]     end_default [ERRNUM]
//   op OPCODE [ERRNUM]                 start and end
//   HOOK_key KEY ...                   the same in the context of (own process id, KEY)
//   release_key KEY | context_key KEY  the latter prints "context=yes" or "context=no"
//   opname OPCODE | print TEXT...
//   repeat N {..} | during MS {..}     thread {..}, threads N {..}: run at the same time and joined
//   spawn {..} | await                 a thread that nobody joins; the latter joins all of them
//   cancel_point                       where a cancelled thread ends
//   cancel N SEED {..}                 N times: a thread that runs the block is cancelled while it does
//   descriptors | memory               prints "descriptors=NUMBER" that are open, "memory_kib=NUMBER" in use
//   fork {..}                          the child runs the block and exits 0, or is killed after 10 seconds;
//                                      prints "child=STATUS"
//   exec COMMAND, COMMAND ...          this process becomes a script host with that script
//   sleep MS | pause US | select MS    the last in ostrum_select without descriptors
//   raise SIG | on_signal SIG {..}     SIG as in HUP
//   interrupt SIG                      SIG cuts system calls short from now on
//   storm SIG US {..}                  SIG to this thread every US microseconds while it runs the block
//   fatal_handler SIG                  installs ostrum_fatal_sig_handler
//   alarm MS                           SIGALRM to the process, once
//   exit N | quick_exit N | _exit N    the last two without exit handlers
//   reenter                            the platform's clock service calls hooks and ostrum_init, once
//   close FD | redirect FD PATH        PATH full_pipe or broken_pipe: such a pipe
//   limit RESOURCE AMOUNT              file_size, descriptors, processes, or address_space beyond what is
//                                      in use
//   shell COMMAND...                   | op_range FIRST LAST [ERRNUM] | variables N   (so many new ones)
//   user ID                            gives up root
//   small_stack KIB {..}               a thread with so small a stack, joined
//   flist_op OPCODE                    an operation with an input and an output list
//   query | variable NAME VALUE        the calls of monitoring programs, on the own data file
//   clock_at S | clock_step S [NTH]    with the shim: sets the wall clock to that second, or by so many, at
//                                      once or when the library reads it for the Nth time from now on
//   zone TZ                            the time zone, before init
//   meet NAME N                        waits until so many hosts of the directory have come to NAME
//   fault CALL NTH ERROR [1]           in a host that the fault shim is preloaded into: see there
//   oracle                             at exit: "issued=HOOK-PAIRS", "left_open=DESCRIPTORS",
//                                      "slowest_us=TIME" of the slowest hook, "finished=HOOK-PAIRS" that
//                                      had returned before the command "exit", "interrupted=TIMES"
//
// Each hook is checked: another errno, signal mask or cancellation state than before, a timestamp that is not
// of the time of the call, or a call that takes longer than any lock may be waited for prints a line that
// begins with "BAD"; so does a forked child that takes longer than 2 seconds.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#endif

#include "ostrum.h"
#include "ostrum_data.h"
#include "qel_platform.h"
#include "robustness/clock_shim.h"
#include "robustness/fault_shim.h"

extern "C" { // absent without the shims
__attribute__((weak)) decltype(shim_fault) shim_fault;
__attribute__((weak)) decltype(shim_set_clock) shim_set_clock;
__attribute__((weak)) decltype(shim_clock_set_by) shim_clock_set_by;
__attribute__((weak)) decltype(shim_step_clock) shim_step_clock;
}

namespace {

struct command {
    std::string name;
    std::vector<std::string> args;
    std::vector<command> block;
};
using script = std::vector<command>;

// Tables and scripts are never destroyed: threads that nobody waits for use them while the process exits.

// ---- Reading ----

void end_command(script& commands, command& open)
{
    if (!open.name.empty()) {
        commands.push_back(std::move(open));
    }
    open = {};
}

void add_word(command& open, std::string& word)
{
    if (!word.empty()) {
        (open.name.empty() ? open.name : open.args.emplace_back()) = word;
    }
    word.clear();
}

script parse(const char*& at)
{
    script commands;
    command open;
    std::string word;
    for (;; ++at) {
        if (*at != '\0' && strchr(" \t;\n{}", *at) == nullptr) {
            word.push_back(*at);
            continue;
        }
        add_word(open, word);
        const bool ends_block = *at == '}';
        if (*at == '{') {
            open.block = parse(++at); // up to its closing brace
        }
        if (*at != ' ' && *at != '\t') {
            end_command(commands, open);
        }
        if (ends_block || *at == '\0') {
            return commands;
        }
    }
}

void run(const script& commands);

int number(const command& c, size_t index, int otherwise = 0)
{
    return index < c.args.size() ? static_cast<int>(strtol(c.args[index].c_str(), nullptr, 0)) : otherwise;
}

std::string text(const command& c, size_t index, const std::string& otherwise = "")
{
    return index < c.args.size() ? c.args[index] : otherwise;
}

int signal_number(const command& c)
{
    for (int n = 1; n < NSIG; ++n) {
        const char* name = sigabbrev_np(n);
        if (name != nullptr && text(c, 0) == name) {
            return n;
        }
    }
    return number(c, 0);
}

// ---- Hooks ----

struct open_operation {
    uint32_t opcode;
    std::string name;
};
using operation_stack = std::vector<open_operation>;

constexpr int no_key = -1;
std::mutex keyed_mutex;
std::map<int, operation_stack>& keyed_stacks = *new std::map<int, operation_stack>;
thread_local operation_stack own_stack;

operation_stack& stack_of(int key)
{
    if (key == no_key) {
        return own_stack;
    }
    const std::lock_guard<std::mutex> guard(keyed_mutex);
    return keyed_stacks[key];
}

constexpr const char* source_file = "script_host.cpp";
constexpr int line = 1;

// ---- What must hold around every call ----

int report_fd = STDOUT_FILENO; // "oracle" makes it a copy, which outlives a closed standard output
std::atomic<long> issued{0};   // starts with their ends, of this process
std::atomic<long> finished{0}; // those of them that have returned
std::atomic<long> finished_before_exit{0};
std::atomic<long> interrupted{0};

int64_t set_by_tv()
{
    return shim_clock_set_by != nullptr ? shim_clock_set_by() * 1'000'000'000 : 0;
}

// As if nobody had set the clock.
int64_t clock_tv()
{
    timespec now{};
    int64_t set_by_then_tv = 0;
    do {
        set_by_then_tv = set_by_tv();
        clock_gettime(CLOCK_REALTIME, &now);
    } while (set_by_then_tv != set_by_tv());
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec - set_by_then_tv;
}

void report_bad(bool bad, const char* what)
{
    if (bad) {
        dprintf(report_fd, "BAD %s\n", what);
    }
}

std::atomic<int64_t> slowest_tv{0};
void note_slowest(int64_t took_tv)
{
    int64_t known_tv = slowest_tv;
    while (took_tv > known_tv && !slowest_tv.compare_exchange_weak(known_tv, took_tv)) {
    }
}

class watched_call {
public:
    watched_call()
    {
        pthread_sigmask(SIG_SETMASK, nullptr, &mask_before_);
        errno = marker;
    }
    void check(int64_t timestamp) const
    {
        constexpr int64_t longest_wait_tv = 12'000'000'000;
        const int64_t earliest_tv = begun_tv_ / 1000 * 1000; // without a clock there are microseconds
        const int64_t now_tv = clock_tv();
        report_bad(errno != marker, "errno");
        const auto in_time = [&](int64_t by_tv) {
            return timestamp - by_tv >= earliest_tv && timestamp - by_tv <= now_tv;
        };
        report_bad(!in_time(set_by_before_tv_) && !in_time(set_by_tv()), "timestamp");
        report_bad(now_tv - begun_tv_ > longest_wait_tv, "hook that blocks");
        note_slowest(now_tv - begun_tv_);
        sigset_t mask{};
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        report_bad(memcmp(&mask, &mask_before_, sizeof(mask)) != 0, "signal mask");
        int cancellation = -1;
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &cancellation);
        report_bad(cancellation != PTHREAD_CANCEL_ENABLE, "cancellation state");
    }

private:
    static constexpr int marker = 4242;
    int64_t begun_tv_ = clock_tv();
    int64_t set_by_before_tv_ = set_by_tv();
    sigset_t mask_before_{};
};

// Calls the plain form of a hook or, with the key, the other.
template <typename Plain, typename Keyed, typename... Args>
void call_hook(int key, Plain plain, Keyed keyed, Args... args)
{
    const watched_call watch;
    watch.check(key == no_key ? plain(args...) : keyed(getpid(), key, args...));
}

// Around the end hook of what was started.
class counted_pair {
public:
    explicit counted_pair(bool counts = true) : count_(counts ? 1 : 0) { issued += count_; }
    ~counted_pair() { finished += count_; }
    counted_pair(const counted_pair&) = delete;
    counted_pair& operator=(const counted_pair&) = delete;

private:
    const int count_;
};

void start(int key, const command& c)
{
    const auto opcode = static_cast<uint32_t>(number(c, 0));
    const open_operation& op =
        stack_of(key).emplace_back(open_operation{opcode, text(c, 1, "op_" + text(c, 0))});
    call_hook(key, ostrum_log_start_op, ostrum_log_start_op_key, op.opcode, op.name.c_str(), 0U, nullptr,
              source_file, line, "", int64_t{0}, int64_t{0}, nullptr);
}

qel_errbuf_t error_buffer(int errnum)
{
    qel_errbuf_t ebuf{};
    ebuf.errnum = static_cast<uint32_t>(errnum);
    ebuf.err_class = errnum != 0 ? QEL_CLASS_APPL : QEL_CLASS_NONE;
    ebuf.location = errnum != 0 ? QEL_LOC_APPL : QEL_LOC_NONE;
    return ebuf;
}

void end(int key, const command& c)
{
    operation_stack& stack = stack_of(key);
    open_operation op = stack.empty() ? open_operation{0, "op_" + text(c, 0)} : stack.back();
    op.opcode = static_cast<uint32_t>(number(c, 0, static_cast<int>(op.opcode)));
    const counted_pair pair(!stack.empty());
    if (!stack.empty()) {
        stack.pop_back();
    }
    qel_errbuf_t ebuf = error_buffer(number(c, 1));
    call_hook(key, ostrum_log_end_op, ostrum_log_end_op_key, op.opcode, op.name.c_str(), 0U, nullptr, nullptr,
              0U, source_file, line, "", int64_t{0}, int64_t{0}, static_cast<void*>(&ebuf));
}

void start_function(int key, const command& c)
{
    call_hook(key, ostrum_log_start_fn, ostrum_log_start_fn_key, 0U, text(c, 0).c_str(), 0U, "script_host",
              source_file, line, "", int64_t{0});
}

void end_function(int key, const command& c)
{
    const int error = number(c, 1);
    const counted_pair pair;
    call_hook(key, ostrum_log_end_fn, ostrum_log_end_fn_key, 0U, text(c, 0).c_str(), 0U, error != 0 ? 1 : 0,
              "script_host", source_file, line, "", int64_t{0}, error, 0, 0);
}

void end_default(int key, const command& c)
{
    const int errnum = number(c, 0);
    const counted_pair pair(!stack_of(key).empty());
    if (!stack_of(key).empty()) {
        stack_of(key).pop_back();
    }
    call_hook(key, ostrum_log_end_default, ostrum_log_end_default_key, errnum != 0 ? 1 : 0, errnum, 0, 0);
}

void whole_operation(int key, const command& c)
{
    start(key, {c.name, {text(c, 0)}, {}});
    end(key, c);
}

void run_with_lists(int opcode)
{
    qel_errbuf_t ebuf{};
    qel_flist_t* const list = qel_flist_create(&ebuf);
    qeli_flist_set(list, QEL_FLD(QEL_TYPE_STR, 17), 0, "text", &ebuf);
    const auto number = static_cast<uint32_t>(opcode);
    call_hook(no_key, ostrum_log_start_op, ostrum_log_start_op_key, number, "listed", 0U,
              static_cast<void*>(list), source_file, line, "", int64_t{0}, int64_t{0}, nullptr);
    const counted_pair pair;
    call_hook(no_key, ostrum_log_end_op, ostrum_log_end_op_key, number, "listed", 0U,
              static_cast<void*>(list), static_cast<void*>(list), 0U, source_file, line, "", int64_t{0},
              int64_t{0}, static_cast<void*>(&ebuf));
    qel_flist_destroy(list, &ebuf);
}

using hook = void (*)(int key, const command& c);
const auto& hooks = *new std::map<std::string, hook>{
    {"start", start},         {"end", end},
    {"op", whole_operation},  {"start_fn", start_function},
    {"end_fn", end_function}, {"end_default", end_default},
};

bool run_hook(const command& c)
{
    const auto plain = hooks.find(c.name);
    if (plain != hooks.end()) {
        plain->second(no_key, c);
        return true;
    }
    const auto keyed = hooks.find(c.name.substr(0, c.name.find("_key")));
    if (keyed != hooks.end()) {
        const std::vector<std::string> rest(c.args.empty() ? c.args.end() : c.args.begin() + 1, c.args.end());
        keyed->second(number(c, 0), {c.name, rest, {}});
    }
    return keyed != hooks.end();
}

// ---- Everything else ----

std::string all_words(const command& c)
{
    std::string all;
    for (const std::string& word : c.args) {
        all += (all.empty() ? "" : " ") + word;
    }
    return all;
}

void operations_of_range(const command& c)
{
    for (int opcode = number(c, 0); opcode <= number(c, 1); ++opcode) {
        whole_operation(no_key, {c.name, {std::to_string(opcode), text(c, 2)}, {}});
    }
}

void set_variables(const command& c)
{
    for (int n = 0; n < number(c, 0); ++n) {
        ostrum_variable_set(ostrum_data_file_get(), ("new_" + std::to_string(n)).c_str(), "1");
    }
}

void repeat(const command& c)
{
    for (int n = number(c, 0); n > 0; --n) {
        run(c.block);
    }
}

std::chrono::steady_clock::time_point from_now(int milliseconds)
{
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
}

// Everyone who comes adds a byte to a file.
void meet(const command& c)
{
    const int fd = open(text(c, 0).c_str(), O_WRONLY | O_APPEND | O_CREAT, 0600);
    const auto wanted = static_cast<off_t>(number(c, 1));
    (void)!write(fd, "!", 1);
    while (lseek(fd, 0, SEEK_END) < wanted) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    close(fd);
}

void repeat_during(const command& c)
{
    const auto end = from_now(number(c, 0));
    while (std::chrono::steady_clock::now() < end) {
        run(c.block);
    }
}

pthread_t start_thread(const command& c, const pthread_attr_t* kind = nullptr)
{
    pthread_t thread{};
    const auto body = [](void* block) -> void* {
        run(*static_cast<const script*>(block)); // the whole script lives to the end
        return nullptr;
    };
    return pthread_create(&thread, kind, body, const_cast<script*>(&c.block)) == 0 ? thread : 0;
}

std::vector<pthread_t>& spawned = *new std::vector<pthread_t>;

// Both by the main thread.
void spawn(const command& c)
{
    spawned.push_back(start_thread(c));
}

void await_spawned()
{
    for (const pthread_t thread : spawned) {
        pthread_join(thread, nullptr);
    }
    spawned.clear();
}

void pause_for(int microseconds)
{
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}

void run_threads(const command& c)
{
    std::vector<std::thread> running;
    for (int n = number(c, 0, 1); n > 0; --n) {
        running.emplace_back([&c] { run(c.block); });
    }
    for (std::thread& thread : running) {
        thread.join();
    }
}

// The moment of each cancellation is another one, within the first half millisecond.
void cancel_threads(const command& c)
{
    for (int n = 0; n < number(c, 0); ++n) {
        const pthread_t thread = start_thread(c);
        pause_for((n * 7 + number(c, 1) * 131) % 500);
        pthread_cancel(thread);
        pthread_join(thread, nullptr);
    }
}

void end_if_cancelled()
{
#ifdef __SANITIZE_ADDRESS__
    __asan_handle_no_return(); // the sanitizer does not see the frames go
#endif
    pthread_testcancel();
}

int open_descriptors()
{
    int count = 0;
    for (int fd = 0; fd < 1024; ++fd) {
        count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    }
    return count;
}

// Without what is shared with other processes.
long memory_in_use_kib()
{
    std::ifstream status("/proc/self/status");
    for (std::string entry; std::getline(status, entry);) {
        if (entry.rfind("RssAnon:", 0) == 0) {
            return strtol(entry.c_str() + strlen("RssAnon:"), nullptr, 10);
        }
    }
    return -1;
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

void exit_by_handlers(const command& c)
{
    finished_before_exit = finished.load();
    exit(number(c, 0));
}

void start_oracle()
{
    report_fd = fcntl(STDOUT_FILENO, F_DUPFD, fault_report_fd);
    atexit(report_at_exit);
    at_quick_exit(report_at_exit);
}

void arm_fault(const command& c)
{
    if (shim_fault != nullptr) {
        shim_fault(text(c, 0).c_str(), number(c, 1), number(c, 2), number(c, 3));
    }
}

void set_clock_to(const command& c)
{
    if (shim_set_clock != nullptr) {
        shim_set_clock(std::stol(text(c, 0)) - clock_tv() / 1'000'000'000);
    }
}

void step_clock(const command& c)
{
    if (shim_step_clock != nullptr && c.args.size() > 1) {
        shim_step_clock(number(c, 1), number(c, 0));
    } else if (shim_set_clock != nullptr) {
        shim_set_clock(shim_clock_set_by() + number(c, 0));
    }
}

void set_zone(const command& c)
{
    setenv("TZ", text(c, 0).c_str(), 1);
    tzset();
}

// What another thread holds would be held in the child for ever.
pid_t fork_with_tables_at_rest()
{
    const std::lock_guard<std::mutex> guard(keyed_mutex);
    return fork();
}

int status_of_child(pid_t child)
{
    const auto due = from_now(2'000);
    const auto given_up = from_now(10'000);
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > given_up) {
            kill(child, SIGKILL);
        }
        pause_for(200);
    }
    report_bad(std::chrono::steady_clock::now() > due, "child that does not end");
    return status;
}

void run_child(const command& c)
{
    const pid_t child = fork_with_tables_at_rest();
    if (child == 0) {
        issued = 0;
        finished = 0;
        spawned.clear();
        run(c.block);
        exit(0);
    }
    const int status = status_of_child(child);
    dprintf(STDOUT_FILENO, "child=%d\n", WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

void become_another_host(const command& c)
{
    std::string commands = all_words(c);
    std::replace(commands.begin(), commands.end(), ',', ';');
    execl("/proc/self/exe", "script_host", commands.c_str(), nullptr);
    _exit(97);
}

void wait_idle(const command& c)
{
    const suseconds_t milliseconds = number(c, 0);
    timeval timeout{milliseconds / 1000, milliseconds % 1000 * 1000};
    const int result = ostrum_select(0, nullptr, nullptr, nullptr, &timeout);
    if (result != 0) {
        dprintf(STDOUT_FILENO, "BAD select %d\n", result);
    }
}

std::map<int, const script*>& signal_scripts = *new std::map<int, const script*>;

void run_at_signal(const command& c)
{
    signal_scripts[signal_number(c)] = &c.block;
    signal(signal_number(c), [](int n) { run(*signal_scripts.at(n)); });
}

void let_interrupt(const command& c)
{
    struct sigaction action {}; // without SA_RESTART
    action.sa_handler = [](int) { ++interrupted; };
    sigaction(signal_number(c), &action, nullptr);
}

void run_in_storm(const command& c)
{
    sigevent to_this_thread{};
    to_this_thread.sigev_notify = SIGEV_THREAD_ID;
    to_this_thread.sigev_signo = signal_number(c);
    to_this_thread._sigev_un._tid = gettid();
    const long apart_tv = number(c, 1) * 1'000L;
    const itimerspec times{{0, apart_tv}, {0, apart_tv}};
    timer_t timer{};
    report_bad(timer_create(CLOCK_MONOTONIC, &to_this_thread, &timer) != 0 ||
                   timer_settime(timer, 0, &times, nullptr) != 0,
               "timer");
    run(c.block);
    timer_delete(timer);
}

void set_alarm(const command& c)
{
    const suseconds_t milliseconds = number(c, 0);
    const itimerval once{{0, 0}, {milliseconds / 1000, milliseconds % 1000 * 1000}};
    setitimer(ITIMER_REAL, &once, nullptr);
}

void limit_resource(const command& c)
{
    static const std::map<std::string, __rlimit_resource> resources{{"file_size", RLIMIT_FSIZE},
                                                                    {"address_space", RLIMIT_AS},
                                                                    {"descriptors", RLIMIT_NOFILE},
                                                                    {"processes", RLIMIT_NPROC}};
    auto amount = static_cast<rlim_t>(number(c, 1));
    if (text(c, 0) == "address_space") {
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        amount += static_cast<rlim_t>(pages * sysconf(_SC_PAGESIZE));
    }
    rlimit limit{};
    getrlimit(resources.at(text(c, 0)), &limit);
    limit.rlim_cur = amount; // the host takes it back for its report at exit
    setrlimit(resources.at(text(c, 0)), &limit);
}

int full_pipe()
{
    int ends[2] = {-1, -1};
    (void)!pipe2(ends, O_NONBLOCK);
    const char byte = 'x';
    while (write(ends[1], &byte, 1) == 1) {
    }
    fcntl(ends[1], F_SETFL, 0); // who writes to it now waits for ever
    return ends[1];
}

int broken_pipe()
{
    int ends[2] = {-1, -1};
    (void)!pipe(ends);
    close(ends[0]);
    return ends[1];
}

void redirect(const command& c)
{
    const std::string path = text(c, 1);
    const int fd = path == "full_pipe"     ? full_pipe()
                   : path == "broken_pipe" ? broken_pipe()
                                           : open(path.c_str(), O_WRONLY);
    dup2(fd, number(c, 0));
    close(fd);
}

void run_on_small_stack(const command& c)
{
    pthread_attr_t kind;
    pthread_attr_init(&kind);
    pthread_attr_setstacksize(&kind, static_cast<size_t>(number(c, 0)) * 1024);
    if (const pthread_t thread = start_thread(c, &kind)) {
        pthread_join(thread, nullptr);
    }
    pthread_attr_destroy(&kind);
}

// The lists of all kinds, each once plain and once merged.
void query()
{
    rt_info* const file = ostrum_data_file_get();
    int32_t count = 0;
    ostrum_counters_destroy(ostrum_counters_get(file, 0, &count));
    ostrum_errors_destroy(ostrum_errors_get(file, 0, &count));
    ostrum_counters_destroy(ostrum_counters_get_aggr(file, 0, &count, OSTRUM_BY_OPCODE));
    ostrum_errors_destroy(ostrum_errors_get_aggr(file, 0, &count, OSTRUM_ERROR_BY_ERRNUM));
    ostrum_variables_destroy(ostrum_variables_get(file, nullptr, &count));
    ostrum_proc_metrics_set_cm_data();
    ostrum_proc_metrics_destroy(ostrum_proc_metrics_get(file));
}

volatile sig_atomic_t reentering = 0;

const auto& others = *new std::map<std::string, std::function<void(const command&)>>{
    {"init", [](const command&) { dprintf(report_fd, "init=%d\n", ostrum_init()); }},
    {"init_quiet", [](const command&) { dprintf(report_fd, "init=%d\n", ostrum_init_quiet()); }},
    {"release_key", [](const command& c) { ostrum_release_liptr_by_key(getpid(), number(c, 0)); }},
    {"context_key",
     [](const command& c) {
         void* context = ostrum_get_liptr_by_key(getpid(), number(c, 0));
         dprintf(STDOUT_FILENO, "context=%s\n", context != nullptr ? "yes" : "no");
     }},
    {"opname",
     [](const command& c) { dprintf(STDOUT_FILENO, "%s\n", ostrum_get_opname(number(c, 0), nullptr)); }},
    {"print", [](const command& c) { dprintf(STDOUT_FILENO, "%s\n", all_words(c).c_str()); }},
    // NOLINTNEXTLINE(cert-env33-c): the words of the command are the test's own
    {"shell", [](const command& c) { (void)!system(all_words(c).c_str()); }},
    {"op_range", operations_of_range},
    {"variables", set_variables},
    {"repeat", repeat},
    {"during", repeat_during},
    {"meet", meet},
    {"thread",
     [](const command& c) {
         run_threads({c.name, {}, c.block});
     }},
    {"threads", run_threads},
    {"cancel", cancel_threads},
    {"cancel_point", [](const command&) { end_if_cancelled(); }},
    {"descriptors", [](const command&) { dprintf(STDOUT_FILENO, "descriptors=%d\n", open_descriptors()); }},
    {"memory", [](const command&) { dprintf(STDOUT_FILENO, "memory_kib=%ld\n", memory_in_use_kib()); }},
    {"spawn", spawn},
    {"await", [](const command&) { await_spawned(); }},
    {"fork", run_child},
    {"exec", become_another_host},
    {"sleep", [](const command& c) { std::this_thread::sleep_for(std::chrono::milliseconds(number(c, 0))); }},
    {"pause", [](const command& c) { pause_for(number(c, 0)); }},
    {"select", wait_idle},
    {"raise", [](const command& c) { raise(signal_number(c)); }},
    {"on_signal", run_at_signal},
    {"interrupt", let_interrupt},
    {"storm", run_in_storm},
    {"alarm", set_alarm},
    {"fatal_handler", [](const command& c) { signal(signal_number(c), ostrum_fatal_sig_handler); }},
    {"exit", exit_by_handlers},
    {"quick_exit", [](const command& c) { quick_exit(number(c, 0)); }},
    {"_exit", [](const command& c) { _exit(number(c, 0)); }},
    {"reenter", [](const command&) { reentering = 1; }},
    {"close", [](const command& c) { close(number(c, 0)); }},
    {"redirect", redirect},
    {"limit", limit_resource},
    {"user", [](const command& c) { (void)!setuid(static_cast<uid_t>(number(c, 0))); }},
    {"small_stack", run_on_small_stack},
    {"flist_op", [](const command& c) { run_with_lists(number(c, 0)); }},
    {"query", [](const command&) { query(); }},
    {"variable",
     [](const command& c) {
         ostrum_variable_set(ostrum_data_file_get(), text(c, 0).c_str(), text(c, 1).c_str());
     }},
    {"clock_at", set_clock_to},
    {"clock_step", step_clock},
    {"zone", set_zone},
    {"fault", arm_fault},
    {"oracle", [](const command&) { start_oracle(); }},
};

void run(const script& commands)
{
    for (const command& c : commands) {
        if (run_hook(c)) {
            continue;
        }
        const auto other = others.find(c.name);
        if (other == others.end()) {
            dprintf(STDOUT_FILENO, "BAD command %s\n", c.name.c_str());
            _exit(99);
        }
        other->second(c);
    }
}

} // namespace

// In place of the platform's own: the service that start-up always calls.
extern "C" __attribute__((visibility("default"))) time_t qel_virtual_time(time_t* out)
{
    if (reentering != 0) {
        reentering = 0;
        run({{"init", {}, {}}, {"init_quiet", {}, {}}, {"op", {"3"}, {}}, {"op_key", {"1", "3"}, {}}});
    }
    return time(out);
}

#ifdef __SANITIZE_THREAD__
// Scripts may end the process while threads are at work, or before anyone joins them.
extern "C" const char* __tsan_default_options()
{
    return "report_thread_leaks=0";
}
#endif

int main(int argc, char** argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: script_host SCRIPT\n");
        return 98;
    }
    qel_platform_init();
    const char* at = argv[1];
    static const script& commands = *new script(parse(at));
    run(commands);
    return 0;
}
