// The sample server with the library's services switched on: its processes, its client and the monitor.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <thread>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/run_command.h"
#include "support/temp_dir.h"

namespace {

#ifdef __SANITIZE_THREAD__
constexpr const char* async_flushing = "0"; // its runtime cannot start a thread in a child of several threads
constexpr int data_manager_threads = 5;     // main and 4 of the pool
#else
constexpr const char* async_flushing = "1";
constexpr int data_manager_threads = 6; // and the flusher
#endif

bool comes_true(const std::function<bool()>& condition)
{
    for (int tries = 0; tries < 1000; ++tries) {
        if (condition()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

class CatalogServer : public testing::Test {
protected:
    void SetUp() override
    {
        server_ = fork();
        ASSERT_GE(server_, 0);
        if (server_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            const char* const settings[][2] = {{"OSTRUM_VAR_TIME", "3"},
                                               {"OSTRUM_ASYNC_FLUSHING", async_flushing},
                                               {"OSTRUM_FLUSH_FREQUENCY", "1"},
                                               {"OSTRUM_STATUS_CHECK_FREQUENCY", "0.05"},
                                               {"OSTRUM_GET_PROCESS_DATA", "3"}};
            for (const auto& [key, value] : settings) {
                setenv(key, value, 1);
            }
            execl(CATALOG_SERVER, "catalog_server", "--run-dir", dir_.path().c_str(), nullptr);
            _exit(97);
        }
        ASSERT_TRUE(comes_true([&] { return !dir_.files_ending("catalog.port").empty(); }));
        ASSERT_EQ(client("load " CATALOG_DATA "/packages.status").exit_status, 0);
    }
    void TearDown() override
    {
        if (server_ <= 0) {
            return;
        }
        int status = -1;
        kill(server_, SIGTERM);
        const bool ended = comes_true([&] { return waitpid(server_, &status, WNOHANG) == server_; });
        EXPECT_TRUE(ended);
        EXPECT_EQ(status, 0);
        if (!ended) {
            kill(server_, SIGKILL);
            waitpid(server_, nullptr, 0);
        }
    }
    [[nodiscard]] command_run client(const std::string& words) const
    {
        return run_command(CATALOG_CLIENT " " + dir_.file("catalog.port") + " " + words);
    }
    [[nodiscard]] command_run monitor() const
    {
        return run_command(OSTRUM_MONITOR " " + dir_.file("ostrum_data.dat"));
    }

    const temp_dir dir_;
    pid_t server_ = -1;
};

} // namespace

TEST_F(CatalogServer, BothProcessesPublishTheirMetrics)
{
    EXPECT_EQ(client("query 1 40").exit_status, 0);
    command_run shown;
    EXPECT_TRUE(comes_true([&] {
        shown = monitor();
        return shown.figure("child processes") == 0 && shown.figure("connections: open") == 0 &&
               shown.figure("in total") == 2; // the loading client's and the other's
    })) << shown.output;
    EXPECT_GE(shown.figure("threads"), data_manager_threads);
    EXPECT_GT(shown.figure("shared memory: size 0\n used"), 0) << "SQLite's heap";
    EXPECT_GE(shown.figure("\n most used"), shown.figure("\n used"));
    EXPECT_EQ(shown.figure(" limit"), 4);
    EXPECT_EQ(shown.figure("transactions: open"), 0);
    EXPECT_GT(shown.figure("limit 4\n done"), 30) << "of the 40 questions some are refused";
    EXPECT_GT(shown.figure("operations: done"), 150) << "as many packages were created";

    kill(server_, SIGHUP); // publishes too, and must not end anything
    EXPECT_TRUE(comes_true([&] {
        shown = monitor();
        return shown.figure("child processes") > 0;
    })) << shown.output;
    EXPECT_EQ(shown.figure("connections: open"), 0) << "the data manager's figures stay";
}
