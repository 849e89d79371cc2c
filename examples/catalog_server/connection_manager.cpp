#include "connection_manager.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <system_error>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "catalog_store.h"
#include "connection_worker.h"
#include "data_manager.h"
#include "idle_wait.h"
#include "process_figures.h"
#include "process_signals.h"

namespace catalog {
namespace {

constexpr const char* data_manager_path = "data_manager.sock";
constexpr std::chrono::seconds stop_patience{15}; // longer than any message may take

// A child process that runs `body` and ends with its result; it is told to stop when the parent is gone.
template <class Body>
pid_t start_process(Body body)
{
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0)
        throw std::system_error(errno, std::generic_category(), "fork");
    if (child > 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        std::exit(1);
    std::exit(body());
}

void write_port_file(const std::string& path, uint16_t port)
{
    const std::string fresh = path + ".new";
    if (!(std::ofstream(fresh) << port << '\n' << std::flush))
        throw std::runtime_error("cannot write " + fresh);
    std::filesystem::rename(fresh, path); // whoever waits for the file never sees it half written
}

class connection_manager {
public:
    explicit connection_manager(const server_options& options)
        : options_(options), signals_(open_signal_fd()), listener_(listen_on_loopback(options.port))
    {}
    ~connection_manager()
    {
        std::error_code ignored;
        std::filesystem::remove(options_.port_file, ignored);
        std::filesystem::remove(data_manager_path, ignored);
    }
    connection_manager(const connection_manager&) = delete;
    connection_manager& operator=(const connection_manager&) = delete;

    int run()
    {
        std::filesystem::remove(options_.port_file); // one left over must not lead anybody here
        start_data_manager();
        const uint16_t port = local_port(listener_);
        write_port_file(options_.port_file, port);
        std::printf("catalog_server: ready on 127.0.0.1:%u\n", unsigned{port});
        std::fflush(stdout);
        serve();
        const bool stopped = stop();
        std::printf("catalog_server: %ld connections served, stopped %s\n", served_,
                    stopped ? "cleanly" : "badly");
        return stopped ? 0 : 1;
    }

private:
    // Here and now, so that a database that cannot be opened ends the start; closed again before the fork.
    void make_tables() const { const catalog_store made(options_.database); }
    void start_data_manager()
    {
        make_tables();
        unique_fd path_listener = listen_on_path(data_manager_path);
        data_manager_ = start_process([&] {
            listener_ = unique_fd();
            return run_data_manager(std::move(path_listener), options_.database, options_.threads);
        });
    }
    void serve()
    {
        publishing_clock clock(connection_manager_part);
        for (;;) {
            idle_wait wait;
            wait.add(signals_);
            if (static_cast<int>(workers_.size()) < options_.max_workers)
                wait.add(listener_);
            wait.wait(clock.left());
            const pending_signals pending = wait.ready(signals_) ? take_signals(signals_) : pending_signals{};
            if (pending.child_changed)
                reap();
            if (pending.stop || data_manager_ == 0)
                return;
            if (wait.ready(listener_))
                start_worker();
            if (clock.due())
                publish_connection_manager();
        }
    }
    void start_worker()
    {
        unique_fd client = accept_connection(listener_);
        if (client.get() < 0)
            return;
        workers_.insert(start_process([&] {
            listener_ = unique_fd();
            return run_connection_worker(std::move(client), data_manager_path);
        }));
        ++served_;
    }
    void reap()
    {
        int status = 0;
        for (pid_t child = waitpid(-1, &status, WNOHANG); child > 0; child = waitpid(-1, &status, WNOHANG)) {
            const bool well = WIFEXITED(status) && WEXITSTATUS(status) == 0;
            healthy_ = healthy_ && well && (child != data_manager_ || stopping_);
            if (!well)
                std::fprintf(stderr, "catalog_server: process %d ended badly (wait status %#x)\n", child,
                             static_cast<unsigned>(status));
            if (child == data_manager_)
                data_manager_ = 0;
            workers_.erase(child);
        }
    }
    // Workers first, so that the data manager answers what they still wait for.
    bool stop()
    {
        stopping_ = true;
        listener_ = unique_fd();
        for (const pid_t worker : workers_)
            kill(worker, SIGTERM);
        wait_until([&] { return workers_.empty(); });
        if (data_manager_ != 0)
            kill(data_manager_, SIGTERM);
        wait_until([&] { return data_manager_ == 0; });
        return healthy_;
    }
    template <class Condition>
    void wait_until(Condition done)
    {
        for (reap(); !done(); reap()) {
            idle_wait wait;
            wait.add(signals_);
            if (!wait.wait(stop_patience)) {
                kill_all();
                return;
            }
            take_signals(signals_);
        }
    }
    void kill_all()
    {
        std::fprintf(stderr, "catalog_server: a process does not stop - killed\n");
        healthy_ = false;
        for (const pid_t worker : workers_)
            kill(worker, SIGKILL);
        if (data_manager_ != 0)
            kill(data_manager_, SIGKILL);
        while (waitpid(-1, nullptr, 0) > 0) {
        }
        workers_.clear();
        data_manager_ = 0;
    }

    const server_options& options_;
    unique_fd signals_;
    unique_fd listener_;
    pid_t data_manager_ = 0; // 0: not running
    std::set<pid_t> workers_;
    long served_ = 0;
    bool stopping_ = false;
    bool healthy_ = true;
};

} // namespace

int run_connection_manager(const server_options& options)
try {
    connection_manager manager(options);
    return manager.run();
} catch (const std::exception& error) {
    std::fprintf(stderr, "catalog_server: %s\n", error.what());
    return 1;
}

} // namespace catalog
