#include "support/fake_os_fixture.h"
#include "support/temp_dir.h"
#include "util/guarded_write.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using fake_os::call;

std::string prefix()
{
    return "2025/11/15 13:17:21.123456 (" + std::to_string(getpid()) + "/" +
           std::to_string(static_cast<uint32_t>(pthread_self())) + ") : ";
}

class DiagnosticsTest : public fake_os_fixture {
protected:
    DiagnosticsTest() { fake_os::freeze_clock(1'763'212'641'123'456'789); }
};

TEST_F(DiagnosticsTest, LineHasTimeProcessAndThread)
{
    const std::string text = fake_os::captured_stderr([] {
        errno = ERANGE;
        err_print("do_it : failed with [%s] %d\n", "x", 3);
        EXPECT_EQ(errno, ERANGE);
    });
    EXPECT_EQ(text, prefix() + "do_it : failed with [x] 3\n");
    EXPECT_EQ(fake_os::calls_made(call::allocate), 0); // a signal handler may write a short line
}

TEST_F(DiagnosticsTest, ALineThatCannotBeWrittenIsLostAndNothingElse)
{
    const int stderr_again = dup(STDERR_FILENO);
    close(STDERR_FILENO);
    errno = ERANGE;
    err_print("lost\n");
    EXPECT_EQ(errno, ERANGE);
    dup2(stderr_again, STDERR_FILENO);
    close(stderr_again);
}

TEST_F(DiagnosticsTest, LongLinesAreWholeWhileMemoryLasts)
{
    // Around the size of the buffer on the stack, and far beyond it.
    for (const size_t whole : {size_t{1022}, size_t{1023}, size_t{1024}, size_t{5000}, size_t{60000}}) {
        SCOPED_TRACE(whole);
        const std::string message(whole - prefix().size() - 1, 'm');
        const auto print = [&] { err_print("%s\n", message.c_str()); };
        EXPECT_EQ(fake_os::captured_stderr(print), prefix() + message + "\n");
        fake_os::fail(call::allocate, 1, ENOMEM, true);
        const std::string cut = fake_os::captured_stderr(print);
        EXPECT_EQ(cut, (prefix() + message).substr(0, 1023) + "\n");
        fake_os::fail(call::allocate, INT32_MAX, ENOMEM);
    }
}

TEST_F(DiagnosticsTest, LineIsOneWrite)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
    const int real_stderr = dup(STDERR_FILENO);
    dup2(ends[0], STDERR_FILENO);
    const std::string message(3000, 'm');
    err_print("%s\n", message.c_str());
    dup2(real_stderr, STDERR_FILENO);
    std::array<char, 8192> datagram{};
    EXPECT_EQ(recv(ends[1], datagram.data(), datagram.size(), MSG_DONTWAIT),
              static_cast<ssize_t>(prefix().size() + message.size() + 1));
    for (const int fd : {ends[0], ends[1], real_stderr}) {
        close(fd);
    }
}

TEST_F(DiagnosticsTest, DebugLinesNeedABit)
{
    EXPECT_EQ(fake_os::captured_stderr([] { debug_print("f : x\n"); }), "");
    ostrum::set_debug_bits(ostrum::debug_detail);
    EXPECT_TRUE(ostrum::debug_on(ostrum::debug_detail));
    EXPECT_FALSE(ostrum::debug_on(ostrum::debug_general));
    EXPECT_EQ(fake_os::captured_stderr([] { debug_print("f : %d\n", 1); }), prefix() + "f : 1\n");
}

bool is_pending(int signal_number)
{
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal_number) == 1;
}

bool is_blocked(int signal_number)
{
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, signal_number) == 1;
}

TEST_F(DiagnosticsTest, ClosedPipeIsAnErrorWithoutASignal)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_FALSE(ostrum::write_all_guarded(ends[1], "x", 1)); // the default action would end the test
    EXPECT_EQ(errno, EPIPE);
    EXPECT_FALSE(is_blocked(SIGPIPE));

    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    EXPECT_FALSE(ostrum::write_all_guarded(ends[1], "x", 1));
    EXPECT_FALSE(is_pending(SIGPIPE));
    pthread_kill(pthread_self(), SIGPIPE); // the host's own, which stays
    EXPECT_FALSE(ostrum::write_all_guarded(ends[1], "x", 1));
    EXPECT_TRUE(is_pending(SIGPIPE));
    EXPECT_TRUE(is_blocked(SIGPIPE));
    int taken = 0;
    sigwait(&set, &taken);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    close(ends[1]);
}

TEST_F(DiagnosticsTest, InterruptedWriteGoesOn)
{
    const temp_dir dir;
    const int fd = open(dir.file("whole").c_str(), O_CREAT | O_WRONLY, 0600);
    fake_os::fail(call::write_file, 1, EINTR);
    EXPECT_TRUE(ostrum::write_all_guarded(fd, "abc", 3));
    fake_os::fail(call::write_file, 1, ENOSPC);
    EXPECT_FALSE(ostrum::write_all_guarded(fd, "def", 3));
    EXPECT_EQ(errno, ENOSPC);
    close(fd);
    EXPECT_EQ(temp_dir::read(dir.file("whole")), "abc");
}

} // namespace
