#include "component/data_file_fixture.h"

#include <thread>
#include <vector>

#include <fcntl.h>

using fake_os::call;
using fake_os::captured_stderr;
using testing::EndsWith;

namespace {

constexpr int64_t correct_size = 5'800'544;

class data_file_test : public data_file_fixture {
protected:
    static std::ptrdiff_t open_descriptors()
    {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }
    // The message of an open that must fail, without its prefix; checks that nothing is left behind.
    std::string refusal(const std::string& path, uint32_t flags)
    {
        const int64_t blocks = fake_os::blocks_in_use();
        const std::ptrdiff_t descriptors = open_descriptors();
        rt_info* opened = nullptr;
        const std::string text =
            captured_stderr([&] { opened = __perf_data_file_open(path.c_str(), flags); });
        EXPECT_EQ(opened, nullptr);
        EXPECT_EQ(fake_os::blocks_in_use(), blocks);
        EXPECT_EQ(open_descriptors(), descriptors);
        const size_t message = text.find(" : ");
        return message == std::string::npos ? text : text.substr(message + 3);
    }
    [[nodiscard]] std::string failed(const std::string& what, int error) const
    {
        return "__data_file_open : " + what + " [" + path() + "] (" + std::to_string(error) + ")[" +
               strerror(error) + "]\n";
    }
    void write_file_of(int64_t bytes) const
    {
        dir_.write("stats.dat", "");
        std::filesystem::resize_file(path(), static_cast<uintmax_t>(bytes));
    }
};

// Where each field lies is in layout.h.
TEST_F(data_file_test, EveryFieldIsFilledIn)
{
    fake_os::set_environment("OSTRUM_VAR_FLIST", "2");
    fake_os::freeze_clock(1234567890123456789);
    ASSERT_NE(open(), nullptr);
    for (int64_t i = 0; i < 2; ++i) {
        rt_counter_add(handle_, -1, "op", 0x80000001, -7, "prog", "file.c", "/obj", 99, 3, 4, 5, 6, 7, 8 + i);
        rt_error_add(handle_, -3, 41, "err", "prog", 0xfffffff1, 12, 13, 14);
    }
    EXPECT_EQ(std::string(image().signature, sizeof image().signature),
              "ostrum-64bit\n" + std::string(19, '\0'));
    EXPECT_EQ(image().pid, static_cast<uint64_t>(getpid()));
    EXPECT_EQ(image().variables_modified_tv, 1234567890123456789);
    ASSERT_EQ(image().counter_count + image().variable_count + image().error_count, 3U);
    const ostrum::counter_entry& c = image().counters[0];
    EXPECT_EQ((std::vector{c.opcode, c.opflags, static_cast<uint64_t>(c.lineno), c.recs, c.calls, c.errors,
                           c.total_t, c.u_cpu_t, c.s_cpu_t, static_cast<uint64_t>(c.db_number)}),
              (std::vector<uint64_t>{0xffffffff, 0x80000001, ~uint64_t{6}, 10, 6, 8, 12, 14, 17, 99}));
    EXPECT_EQ(std::string(c.opname) + c.program + c.fname + c.obj_type, "opprogfile.c/obj");
    const ostrum::variable_entry& v = image().variables[0];
    EXPECT_EQ(std::string(v.name) + "=" + v.value, "flist_on=2");
    const ostrum::error_entry& e = image().errors[0];
    EXPECT_EQ(
        (std::vector{static_cast<uint64_t>(e.dbno), e.opcode, e.err_class, e.location, e.errnum, e.errcnt}),
        (std::vector<uint64_t>{~uint64_t{2}, 41, 0xfffffff1, 12, 13, 28}));
    EXPECT_EQ(std::string(e.opname) + e.program, "errprog");
    constexpr int process_shared = 0x80; // of the default type
    const ostrum::lock_slot* const locks[] = {&image().locks[0], &image().locks[4], &c.lock, &v.lock};
    for (const ostrum::lock_slot* slot : locks) {
        EXPECT_EQ(slot->mutex.__data.__kind, process_shared);
    }
}

TEST_F(data_file_test, EachFailingStepOfCreationIsReportedAndLeavesNothingBehind)
{
    const struct {
        call which;
        int64_t nth;
        int error;
        const char* message; // between the prefix and "[path]"; null: silent
        bool stays;
    } cases[] = {
        {call::open_file, 1, EACCES, "failed creating", false},
        {call::seek_file, 1, EIO, "failed extending", true},
        {call::write_file, 1, ENOSPC, "failed extending", true},
        {call::reserve_blocks, 1, ENOSPC, "failed extending", false},
        {call::map_shared, 1, ENOMEM, "failed mmap on", false},
        {call::allocate, 1, ENOMEM, nullptr, false},
        {call::allocate, 2, ENOMEM, nullptr, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.which));
        std::filesystem::remove(path());
        fake_os::fail(c.which, c.nth, c.error);
        EXPECT_EQ(refusal(path(), host_flags), c.message == nullptr ? "" : failed(c.message, c.error));
        EXPECT_EQ(std::filesystem::exists(path()), c.stays);
    }
    fake_os::fail(call::reserve_blocks, 1, EOPNOTSUPP);
    EXPECT_NE(open(), nullptr) << "a file system without reservation is good enough";
}

TEST_F(data_file_test, UnfitFilesAreRefused)
{
    EXPECT_EQ(refusal("", host_flags), "__data_file_open : no file name specified\n");
    EXPECT_EQ(refusal(path(), DATA_FILE_MUST_EXIST),
              "__data_file_open : data file[" + path() + "] doesn't exist\n");
    EXPECT_FALSE(std::filesystem::exists(path()));
    for (const auto& [bytes, shown] :
         {std::pair(correct_size + 1, "5800545"), {(int64_t{1} << 32) + correct_size, "2147483647"}}) {
        write_file_of(bytes);
        EXPECT_EQ(refusal(path(), host_flags),
                  "__data_file_open : file[" + path() + "] size[" + shown + "] - correct[5800544]\n");
    }
    write_file_of(correct_size);
    const std::pair<call, const char*> steps[] = {{call::open_file, "failed opening"},
                                                  {call::reserve_blocks, "failed extending"},
                                                  {call::map_shared, "failed mmap on"}};
    for (const auto& [which, what] : steps) {
        fake_os::fail(which, 1, ENOSPC);
        EXPECT_EQ(refusal(path(), host_flags), failed(what, ENOSPC));
        EXPECT_TRUE(std::filesystem::exists(path()));
    }
    EXPECT_THAT(captured_stderr([&] { EXPECT_EQ(perf_file_size((path() + "x").c_str()), -1); }),
                EndsWith("Failed stat on '" + path() + "x' - 2 (No such file or directory)\n"));
}

TEST_F(data_file_test, AFileBeingCreatedByAnotherProcessIsWaitedFor)
{
    write_file_of(0);
    std::thread creator([this] {
        while (fake_os::calls_made(call::status_of_path) < 3) { // it has found it too short once
            std::this_thread::yield();
        }
        write_file_of(correct_size);
    });
    EXPECT_NE(open(), nullptr);
    creator.join();
    EXPECT_NE(add_counter(1), nullptr);
}

TEST_F(data_file_test, AFileWhoseCreatorDiedIsFinishedByTheNextHost)
{
    fake_os::set_environment("OSTRUM_VAR_TIME", "1");
    write_file_of(correct_size);
    ASSERT_NE(open(DATA_FILE_MUST_EXIST), nullptr);
    EXPECT_EQ(image().variable_count, 0U) << "a monitoring program leaves it as it is";
    ASSERT_NE(open(), nullptr);
    EXPECT_EQ(image().variable_count, 1U);
    EXPECT_STREQ(image().signature, "ostrum-64bit\n");

    add_counter(1);
    image().pid = 0;
    ASSERT_NE(open(), nullptr);
    EXPECT_EQ(image().counter_count, 1U) << "somebody has counted into it";
    fake_os::set_environment("OSTRUM_VAR_TIME", nullptr);
}

TEST_F(data_file_test, ContentsStayUntilTheyAreReset)
{
    ASSERT_NE(open(), nullptr);
    add_counter(1);
    add_error(1);
    rt_variable_add(handle_, "time_on", "7", 1);
    std::fill_n(image().metrics.words, 26, 5U);

    fake_os::set_environment("OSTRUM_VAR_TIME", "1");
    fake_os::set_environment("OSTRUM_VAR_ALARM", "");
    fake_os::set_environment("OSTRUM_VAR_TRACE_OPCODES", "40,no_such_opcode");
    ASSERT_NE(open(), nullptr);
    EXPECT_EQ(image().counter_count, 1U);
    EXPECT_EQ(image().error_count, 1U);
    EXPECT_STREQ(image().variables[0].value, "7");
    EXPECT_EQ(image().metrics.words[0], 5U);
    ASSERT_NE(open(DATA_FILE_MUST_EXIST), nullptr);
    EXPECT_EQ(image().pid, static_cast<uint64_t>(getpid()));

    image().reserved = 1;
    const std::string text = captured_stderr([&] { open(host_flags | DATA_FILE_RESET); });
    EXPECT_THAT(text, EndsWith("Invalid 'ostrum_var_trace_opcodes' configuration - will be ignored\n"));
    EXPECT_EQ(image().counter_count + image().error_count + image().reserved, 0U);
    ASSERT_EQ(image().variable_count, 3U);
    EXPECT_STREQ(image().variables[0].value, "1");
    EXPECT_STREQ(image().variables[1].name, "alarm_on");
    EXPECT_STREQ(image().variables[2].name, "trace_opcodes");
    EXPECT_STREQ(image().variables[2].value, "");
    for (size_t i = 0; i < 26; ++i) {
        EXPECT_EQ(image().metrics.words[i], i == 7 ? 5U : 0U) << i;
    }
    fake_os::set_environment("OSTRUM_VAR_TRACE_OPCODES", "0x1");
    fake_os::set_environment("OSTRUM_VAR_TIME", nullptr);
}

TEST_F(data_file_test, ClosingGoesOnAfterAFailingStepAndUnlinksOnRequest)
{
    open();
    rt_info* handle = std::exchange(handle_, nullptr);
    for (const call step : {call::unmap, call::close_file, call::unlink_path}) {
        fake_os::fail(step, 1, EPERM);
    }
    const std::string cause = " errno\\[1\\]\\(Operation not permitted\\)\n";
    EXPECT_THAT(captured_stderr([&] { __perf_data_file_close(handle, 1); }),
                testing::ContainsRegex("failed unmapping dfp\\[0x[0-9a-f]+\\]" + cause +
                                       ".*failed closing fd\\[[0-9]+\\]" + cause +
                                       ".*failed unlinking path\\[" + path() + "\\]" + cause));
    EXPECT_EQ(fake_os::blocks_in_use(), 0);

    __perf_data_file_close(__perf_data_file_open(path().c_str(), host_flags), 1);
    EXPECT_FALSE(std::filesystem::exists(path()));
    __perf_data_file_close(nullptr, 1);
}

} // namespace
