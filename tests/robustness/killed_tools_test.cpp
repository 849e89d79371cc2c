// kill -9 reaches a monitoring program while it looks at the data file of hosts at work.
#include <chrono>
#include <filesystem>
#include <fstream>

#include <sys/wait.h>
#include <unistd.h>

#include "robustness/several_hosts.h"

namespace {

// Who makes one sees its end.
class monitoring_program {
public:
    explicit monitoring_program(const std::string& command)
    {
        const std::string whole = "exec " + command + " >/dev/null 2>&1";
        pid_ = fork();
        if (pid_ == 0) {
            execl("/bin/sh", "sh", "-c", whole.c_str(), nullptr);
            _exit(97);
        }
    }
    monitoring_program(const monitoring_program&) = delete;
    monitoring_program& operator=(const monitoring_program&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] bool is_over() const
    {
        siginfo_t ended{};
        return waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 ||
               ended.si_pid == pid_;
    }
    // False: it was over before.
    [[nodiscard]] bool stopped_now()
    {
        kill(pid_, SIGSTOP);
        return waitpid(pid_, &status_, WUNTRACED) == pid_ && WIFSTOPPED(status_);
    }
    [[nodiscard]] bool killed_now()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status_, 0);
        return WIFSIGNALED(status_) && WTERMSIG(status_) == SIGKILL;
    }

private:
    pid_t pid_ = -1;
    int status_ = 0;
};

void pause_us(int microseconds)
{
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}

#ifdef OSTRUM_TOOL
std::filesystem::path entry_of(pid_t pid, const char* name)
{
    return "/proc/" + std::to_string(pid) + "/" + name;
}

bool has_open(pid_t pid, const std::filesystem::path& path)
{
    for (int fd = 3; fd < 16; ++fd) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry_of(pid, "fd") / std::to_string(fd), gone) == path) {
            return true;
        }
    }
    return false;
}

// What the process has of the file that another one could wait for.
std::string hold_on(pid_t pid, const std::filesystem::path& path)
{
    std::string held;
    std::ifstream mappings(entry_of(pid, "maps"));
    for (std::string line; std::getline(mappings, line);) {
        held += line.find(path) != std::string::npos && line.find(" r--") == std::string::npos ? line : "";
    }
    for (const auto& entry : std::filesystem::directory_iterator(entry_of(pid, "fd"))) {
        using std::filesystem::perms;
        const bool writable = (entry.symlink_status().permissions() & perms::owner_write) != perms::none;
        held += writable && read_symlink(entry.path()) == path ? "a descriptor for writing" : "";
    }
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        held += line.find(" " + std::to_string(pid) + " ") != std::string::npos ? line : "";
    }
    return held;
}
#endif

// Two hosts that are at work as long as the body runs; then a third one starts.
template <typename Body>
void beside_hosts_at_work(int limit_ms, Body body)
{
    const host_settings& settings = ways_of_several()[1].settings; // the shared file
    const host_options options{.directory = new_directory(), .patience_s = 300};
    counter_watch watch(*options.directory);
    std::vector<host_run> hosts(3);
    const auto work = [&](size_t n) {
        return [&, n] {
            hosts[n] = run_watched(settings, host_at_work_until_done(10 + static_cast<int>(n), 3), options);
        };
    };
    const auto look = [&] {
        std::ofstream(options.directory->file("start"), std::ios::app) << "!";
        while (temp_dir::read(options.directory->file("start")).size() < 3) {
            pause_us(100);
        }
        body(options.directory->file("ostrum_data.dat"));
        hosts[2] = run_watched(settings, next_host, options);
        options.directory->write("done", "");
    };
    at_once({work(0), work(1), look});
    watch.stop();
    const observed_run all = look_at(hosts);
    expect_at_work(all, hosts[0], 10, limit_ms);
    expect_at_work(all, hosts[1], 11, limit_ms);
    expect_next_host(all, hosts[2], watch);
    expect_nothing_harmed(all, false);
}

// Some are over before they are killed.
constexpr int most_tries = 100'000;

using KilledTools = unsanitized_test;

} // namespace

#ifdef OSTRUM_TOOL
TEST_F(KilledTools, TheCommandLineToolHoldsNothingEver)
{
    const int wanted = long_form() ? 500 : 20;
    const char* const commands[] = {"counters ", "errors ", "vars ", "metrics ", "check "};
    case_count runs;
    int reading = 0; // when it was killed
    beside_hosts_at_work(no_lock_ms, [&](const std::string& data_file) {
        const auto path = std::filesystem::canonical(data_file);
        for (int n = 0; runs.made() < wanted && n < most_tries; ++n) {
            monitoring_program tool(OSTRUM_TOOL " " + std::string(commands[n % 5]) + path.string());
            if (n % 2 == 0) { // in the midst of its reading, unless it is faster
                while (!tool.is_over() && !has_open(tool.pid(), path)) {
                }
            } else {
                pause_us(static_cast<int>(seed()) * 7 + n * 977 % 9000);
            }
            if (tool.stopped_now()) {
                reading += has_open(tool.pid(), path) ? 1 : 0;
                EXPECT_EQ(hold_on(tool.pid(), path), "");
                runs.add(tool.killed_now() ? 1 : 0);
            }
        }
    });
    EXPECT_EQ(runs.made(), wanted);
    EXPECT_GT(reading, 0) << "it has never been killed in the midst of its reading";
}
#endif

#ifdef OSTRUM_MONITOR
// A program over the query calls takes the locks that the hosts take.
TEST_F(KilledTools, AMonitorOverTheQueryCallsMayDieAtAnyTime)
{
    const int wanted = long_form() ? 200 : 10;
    case_count runs;
    beside_hosts_at_work(nested_locks_ms, [&](const std::string& data_file) {
        for (int n = 0; runs.made() < wanted && n < most_tries; ++n) {
            monitoring_program monitor(OSTRUM_MONITOR " -s new=1 " + data_file);
            pause_us(static_cast<int>(seed()) * 7 + n * 977 % 3000);
            runs.add(monitor.killed_now() ? 1 : 0);
        }
    });
    EXPECT_EQ(runs.made(), wanted);
}
#endif
