#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "data_file/data_file.h"
#include "os/os_calls.h"
#include "process_state/signals.h"
#include "startup/startup_steps.h"
#include "support/fake_os_fixture.h"
#include "support/temp_dir.h"

using fake_os::call;
using fake_os::captured_stderr;
using ostrum::settings;
using testing::EndsWith;

namespace {

// The set-up of logging, again and again in one process: with a directory and a data file of its own.
class StartupFaults : public fake_os_fixture {
protected:
    StartupFaults() { use_defaults(); }

    void use_defaults()
    {
        fake_os::reset();
        fake_os::set_environment("OSTRUM_LOGDIR", dir_.path().c_str());
        fake_os::set_environment("OSTRUM_DATA_FILE", (dir_.path() + "/data_%T").c_str());
        fake_os::set_environment("OSTRUM_LOG_SINGLE_FILE", "all");
    }

    // Result of the steps; errors_ receives standard error.
    bool start()
    {
        bool done = false;
        settings out;
        errors_ = captured_stderr([&] { done = run_startup_steps(out); });
        if (rt_info* handle = __ostrum_get_data_file_handle()) {
            __perf_data_file_close(handle, 1);
            ostrum::set_data_file_handle(nullptr);
        }
        if (out.log_directory != nullptr && dir_.path() == out.log_directory) {
            ostrum::os::release(const_cast<char*>(out.log_directory));
        }
        return done;
    }

    temp_dir dir_;
    std::string errors_;
};

} // namespace

TEST_F(StartupFaults, EachReportsItsCauseAndOnlyTheExitHandlerIsDispensable)
{
    const struct {
        call failing;
        int error;
        bool done;
        const char* last_line;
    } cases[] = {
        {call::local_time, EINVAL, false, "perf_log_init : failed building data file name from["},
        {call::create_thread_key, EAGAIN, false, "perf_log_init : failed creating TLS key - errno[11]("},
        {call::at_fork_in_child, ENOMEM, false, "perf_log_init : failed registering 'atfork' - errno["},
        {call::map_shared, ENOMEM, false, "perf_log_init : failed opening data_file["},
        {call::at_exit, ENOMEM, true, " : perf_log_init : failed registering 'atexit' - some final\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.last_line);
        use_defaults();
        fake_os::fail(c.failing, 1, c.error);
        EXPECT_EQ(start(), c.done);
        EXPECT_THAT(errors_, testing::HasSubstr(c.last_line));
        EXPECT_EQ(errors_.find("may not be flushed!\n") != std::string::npos, c.failing == call::at_exit);
    }
}

TEST_F(StartupFaults, WithoutMemoryNothingOfTheStartIsLeft)
{
    int64_t nth = 0;
    do {
        use_defaults();
        fake_os::fail(call::allocate, ++nth, ENOMEM);
        EXPECT_TRUE(start() || !errors_.empty()) << nth; // a setting that cannot be read counts as unset
        EXPECT_EQ(fake_os::blocks_in_use(), 0) << nth;
    } while (fake_os::calls_made(call::allocate) >= nth);
    EXPECT_GT(nth, 10);
}

TEST_F(StartupFaults, ASignalHandlerThatCannotBeInstalledIsReported)
{
    fake_os::fail(call::install_signal_action, 1, EINVAL);
    EXPECT_THAT(captured_stderr([] { EXPECT_EQ(__set_signal_handler(SIGUSR1, SIG_IGN), -1); }),
                EndsWith(" : __set_signal_handler: failed installing signal handler for sig[10] - "
                         "errno[22](Invalid argument)\n"));
    EXPECT_EQ(__set_signal_handler(SIGUSR1, SIG_IGN), 0);
    struct sigaction installed {};
    ASSERT_EQ(sigaction(SIGUSR1, nullptr, &installed), 0);
    EXPECT_NE(installed.sa_flags & SA_RESTART, 0);
    for (const int blocked : {SIGTERM, SIGINT, SIGCHLD}) {
        EXPECT_EQ(sigismember(&installed.sa_mask, blocked), 1);
    }
}

// As in a child that was forked in the midst of start-up.
TEST_F(StartupFaults, WhoStartsAgainRegistersNothingTwice)
{
    ASSERT_TRUE(start());
    use_defaults();
    ASSERT_TRUE(start());
    EXPECT_EQ(fake_os::calls_made(call::at_exit), 0);
    EXPECT_EQ(fake_os::calls_made(call::at_fork_in_child), 0);
}
