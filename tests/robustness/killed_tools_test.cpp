// kill -9 reaches a monitoring program while it looks at the data file of hosts at work.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "robustness/fault_shim.h"
#include "robustness/several_hosts.h"

namespace {

// A program of the build, with nothing in its environment but what is given. Who makes one sees its end.
class monitoring_program {
public:
    explicit monitoring_program(std::vector<std::string> words, std::vector<std::string> variables = {})
    {
        const std::vector<char*> arguments = pointers_to(words);
        const std::vector<char*> environment = pointers_to(variables);
        pid_ = fork();
        if (pid_ == 0) {
            const int nowhere = open("/dev/null", O_WRONLY);
            dup2(nowhere, STDOUT_FILENO);
            dup2(nowhere, STDERR_FILENO);
            execve(arguments[0], arguments.data(), environment.data());
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
        return killed_by_itself();
    }
    [[nodiscard]] bool killed_by_itself()
    {
        waitpid(pid_, &status_, 0);
        return WIFSIGNALED(status_) && WTERMSIG(status_) == SIGKILL;
    }

private:
    static std::vector<char*> pointers_to(std::vector<std::string>& texts)
    {
        std::vector<char*> pointers(texts.size() + 1, nullptr);
        for (size_t n = 0; n < texts.size(); ++n) {
            pointers[n] = texts[n].data();
        }
        return pointers;
    }

    pid_t pid_ = -1;
    int status_ = 0;
};

void pause_us(int microseconds)
{
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}

#ifdef OSTRUM_TOOL
bool has_open(pid_t pid, const std::filesystem::path& path)
{
    const std::string descriptors = "/proc/" + std::to_string(pid) + "/fd/";
    for (int fd = 3; fd < 16; ++fd) {
        std::error_code gone;
        if (std::filesystem::read_symlink(descriptors + std::to_string(fd), gone) == path) {
            return true;
        }
    }
    return false;
}

// Returns in the midst of the tool's reading, unless the tool is faster.
void wait_until_open(const monitoring_program& tool, const std::filesystem::path& path)
{
    while (!tool.is_over() && !has_open(tool.pid(), path)) {
    }
}

struct hold {
    bool open = false; // the process has the file open
    std::string held;  // what it has of it that another one could wait for
};

hold hold_on(pid_t pid, const std::string& data_file)
{
    const std::string path = std::filesystem::canonical(data_file).string();
    const std::string process = "/proc/" + std::to_string(pid);
    hold found;
    std::string& held = found.held;
    std::ifstream mappings(process + "/maps");
    for (std::string line; std::getline(mappings, line);) {
        held += line.find(path) != std::string::npos && line.find(" r--") == std::string::npos ? line : "";
    }
    for (const auto& entry : std::filesystem::directory_iterator(process + "/fd")) {
        std::error_code ignored;
        struct stat status {};
        const bool of_file = std::filesystem::equivalent(entry.path(), path, ignored);
        const bool writable = lstat(entry.path().c_str(), &status) == 0 && (status.st_mode & S_IWUSR) != 0;
        found.open = found.open || of_file;
        held += of_file && writable ? "a descriptor for writing" : "";
    }
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        held += line.find(" " + std::to_string(pid) + " ") != std::string::npos ? line : "";
    }
    return found;
}
#endif

// Two hosts at work, and meanwhile the body, which may start the next one.
class watched_hosts {
public:
    explicit watched_hosts(int work_ms) : work_ms_(work_ms) {}

    [[nodiscard]] std::string data_file() const { return options_.directory->file("ostrum_data.dat"); }
    [[nodiscard]] bool at_work() const { return at_work_; }

    template <typename Body>
    void run_with(Body body)
    {
        std::thread beside([&] {
            while (!std::filesystem::exists(options_.directory->file("start"))) {
                pause_us(100);
            }
            body();
        });
        at_once({[this] { run(0); }, [this] { run(1); }});
        at_work_ = false;
        beside.join();
    }
    void start_next() { hosts_.push_back(run_watched(way_.settings, next_host, options_)); }
    void expect_unharmed(int limit_ms)
    {
        watch_.stop();
        const observed_run all = look_at(hosts_);
        expect_at_work(all, hosts_[0], 10, limit_ms);
        expect_at_work(all, hosts_[1], 11, limit_ms);
        if (hosts_.size() == 3) {
            expect_next_host(all, hosts_[2], watch_);
        }
        expect_nothing_harmed(all, false);
    }

private:
    void run(int n)
    {
        hosts_[static_cast<size_t>(n)] =
            run_watched(way_.settings, host_at_work(10 + n, 2, work_ms_), options_);
    }

    const writing& way_ = ways_of_several()[1]; // the shared file
    const host_options options_{.directory = new_directory()};
    const int work_ms_;
    counter_watch watch_{*options_.directory};
    std::vector<host_run> hosts_{2};
    std::atomic<bool> at_work_{true};
};

class KilledTools : public testing::Test {
protected:
    void SetUp() override
    {
        if (sanitized()) {
            GTEST_SKIP() << "what a killed process leaves behind is nothing that a sanitizer sees";
        }
    }
};

} // namespace

#ifdef OSTRUM_TOOL
TEST_F(KilledTools, TheCommandLineToolHoldsNothingEver)
{
    const int wanted = long_form() ? 500 : 40;
    watched_hosts hosts(wanted * 30);
    int runs = 0;
    int reading = 0; // when it was killed
    hosts.run_with([&] {
        const std::vector<std::string> commands{"counters", "errors", "vars", "metrics", "check"};
        for (int n = 0; runs < wanted && hosts.at_work(); ++n) {
            monitoring_program tool(
                {OSTRUM_TOOL, commands[static_cast<size_t>(n) % commands.size()], hosts.data_file()});
            if (n % 2 == 0) {
                wait_until_open(tool, std::filesystem::canonical(hosts.data_file()));
            } else {
                pause_us(static_cast<int>(seed()) * 7 + n * 977 % 9000);
            }
            const bool stopped = tool.stopped_now();
            const hold found = stopped ? hold_on(tool.pid(), hosts.data_file()) : hold{};
            EXPECT_EQ(found.held, "");
            reading += found.open ? 1 : 0;
            runs += stopped && tool.killed_now() ? 1 : 0;
        }
    });
    hosts.expect_unharmed(no_lock_ms);
    EXPECT_GE(runs, wanted / 4) << "the tool has been too fast, or the machine too slow";
    EXPECT_GT(reading, 0) << "it has never been killed in the midst of its reading";
    std::cout << runs << " runs, " << reading << " with the file open\n";
}
#endif

// A program over the query calls takes the locks that the hosts take.
TEST_F(KilledTools, AMonitorOverTheQueryCallsMayDieWithAnyLock)
{
    const struct {
        const char* lock;
        int limit_ms;
    } locks[] = {{"tables", header_lock_ms},
                 {"metrics", header_lock_ms},
                 {"counter", nested_locks_ms},
                 {"variable", nested_locks_ms}};
    unsigned number = 0;
    int runs = 0;
    for (const auto& lock : locks) {
        for (const char* event : {"locked_", "unlocking_"}) {
            for (const int nth : {1, 2}) {
                const std::string fault = event + std::string(lock.lock) + " " + std::to_string(nth) + " " +
                                          std::to_string(fault_kill);
                if ((nth > 1 && lock.lock == std::string("metrics")) || !takes_part(number++, 5)) {
                    continue;
                }
                SCOPED_TRACE(fault);
                watched_hosts hosts(300);
                hosts.run_with([&] {
                    pause_us(20'000);
                    monitoring_program monitor(
                        {OSTRUM_MONITOR, "-s", "new=1", hosts.data_file()},
                        {"FAULT=" + fault, "LD_PRELOAD=" + std::string(fault_shim_path())});
                    EXPECT_TRUE(monitor.killed_by_itself());
                    pause_us(20'000);
                    hosts.start_next();
                });
                hosts.expect_unharmed(lock.limit_ms);
                ++runs;
            }
        }
    }
    std::cout << runs << " runs\n";
}

TEST_F(KilledTools, AMonitorOverTheQueryCallsMayDieAtAnyTime)
{
    const int wanted = long_form() ? 200 : 20;
    watched_hosts hosts(wanted * 10);
    int runs = 0;
    hosts.run_with([&] {
        for (int n = 0; n < wanted; ++n) {
            monitoring_program monitor({OSTRUM_MONITOR, "-s", "new=1", hosts.data_file()});
            pause_us(static_cast<int>(seed()) * 7 + n * 977 % 3000);
            runs += monitor.killed_now() ? 1 : 0;
        }
        hosts.start_next();
    });
    hosts.expect_unharmed(nested_locks_ms);
    EXPECT_GE(runs, wanted / 4) << "the monitor has been too fast, or the machine too slow";
    std::cout << runs << " runs\n";
}
