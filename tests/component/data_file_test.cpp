#include "component/data_file_fixture.h"

#include <thread>

#include <fcntl.h>

using fake_os::call;
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
            fake_os::captured_stderr([&] { opened = __perf_data_file_open(path.c_str(), flags); });
        EXPECT_EQ(opened, nullptr);
        EXPECT_EQ(fake_os::blocks_in_use(), blocks);
        EXPECT_EQ(open_descriptors(), descriptors);
        const size_t message = text.find(" : ");
        return message == std::string::npos ? text : text.substr(message + 3);
    }
    void write_file_of(int64_t bytes) const
    {
        dir_.write("stats.dat", "");
        std::filesystem::resize_file(path(), static_cast<uintmax_t>(bytes));
    }
};

uint64_t word_at(const std::string& bytes, size_t offset)
{
    uint64_t word = 0;
    memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

TEST_F(data_file_test, EveryFieldLiesWhereReadersLookForIt)
{
    fake_os::set_environment("OSTRUM_VAR_FLIST", "2");
    fake_os::freeze_clock(1234567890123456789);
    ASSERT_NE(open(), nullptr);
    for (int64_t i = 0; i < 2; ++i) {
        rt_counter_add(handle_, -1, "op", 0x80000001, -7, "prog", "file.c", "/obj", 99, 3, 4, 5, 6, 7, 8 + i);
        rt_counter_add(handle_, 40, "op2", 0, 0, "", "", "", i, 0, 0, 0, 0, 0, 0);
        rt_error_add(handle_, -3, 41, "err", "prog", 0xfffffff1, 12, 13 + static_cast<uint32_t>(i), 14);
    }
    rt_variable_add(handle_, "second", "text", 0);
    image().metrics.words[25] = 77;
    const auto pid = static_cast<uint64_t>(getpid());
    close();

    const std::string bytes = temp_dir::read(path());
    ASSERT_EQ(bytes.size(), static_cast<size_t>(correct_size));
    EXPECT_EQ(bytes.substr(0, 32), "ostrum-64bit\n" + std::string(19, '\0'));
    const uint64_t mutex_kind = 0x80; // process-shared, default type
    const struct {
        size_t offset;
        uint64_t value;
    } words[] = {
        {32 + 16 + 16, mutex_kind},
        {288 + 16 + 16, mutex_kind},
        {352, pid},
        {360, 0},
        {368 + 16 + 16, mutex_kind},
        {368 + 576, 0xffffffff},
        {368 + 584, 0x80000001},
        {368 + 592, ~uint64_t{6}},
        {368 + 600, 10},
        {368 + 608, 6},
        {368 + 616, 8},
        {368 + 624, 12},
        {368 + 632, 14},
        {368 + 640, 17},
        {368 + 648, 99},
        {368 + 656 + 576, 40},
        {368 + 2 * 656 + 648, 1},
        {2'687'344, 3},
        {2'687'352 + 16 + 16, mutex_kind},
        {3'309'944, 2},
        {3'309'952, 1234567890123456789},
        {3'309'960, ~uint64_t{2}},
        {3'309'960 + 8, 41},
        {3'309'960 + 272, 0xfffffff1},
        {3'309'960 + 280, 12},
        {3'309'960 + 288, 13},
        {3'309'960 + 296, 14},
        {3'309'960 + 304 + 288, 14},
        {5'800'328, 2},
        {5'800'336 + 25 * 8, 77},
    };
    for (const auto& w : words) {
        SCOPED_TRACE(w.offset);
        EXPECT_EQ(word_at(bytes, w.offset), w.value);
    }
    const struct {
        size_t offset;
        const char* text;
    } texts[] = {
        {368 + 64, "op"},
        {368 + 192, "prog"},
        {368 + 320, "file.c"},
        {368 + 448, "/obj"},
        {2'687'352 + 64, "flist_on"},
        {2'687'352 + 192, "2"},
        {2'687'352 + 1216 + 64, "second"},
        {3'309'960 + 16, "err"},
        {3'309'960 + 144, "prog"},
    };
    for (const auto& t : texts) {
        EXPECT_STREQ(bytes.data() + t.offset, t.text);
    }
}

TEST_F(data_file_test, EachFailingStepOfCreationIsReportedAndLeavesNothingBehind)
{
    const struct {
        call which;
        int error;
        const char* message; // between the prefix and "[path]"; null: silent
        bool stays;
    } cases[] = {
        {call::open_file, EACCES, "failed creating", false},
        {call::seek_file, EIO, "failed extending", true},
        {call::write_file, ENOSPC, "failed extending", true},
        {call::reserve_blocks, ENOSPC, "failed extending", false},
        {call::map_shared, ENOMEM, "failed mmap on", false},
        {call::allocate, ENOMEM, nullptr, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.which));
        std::filesystem::remove(path());
        fake_os::fail(c.which, 1, c.error);
        const std::string text = refusal(path(), host_flags);
        EXPECT_EQ(text, c.message == nullptr
                            ? ""
                            : "__data_file_open : " + std::string(c.message) + " [" + path() + "] (" +
                                  std::to_string(c.error) + ")[" + strerror(c.error) + "]\n");
        EXPECT_EQ(std::filesystem::exists(path()), c.stays);
    }
    fake_os::reset();
    fake_os::fail(call::allocate, 2, ENOMEM);
    EXPECT_EQ(refusal(path(), host_flags), "");

    fake_os::fail(call::reserve_blocks, 1, EOPNOTSUPP);
    EXPECT_NE(open(), nullptr) << "a file system without reservation is good enough";
}

TEST_F(data_file_test, UnfitFilesAreRefused)
{
    EXPECT_EQ(refusal("", host_flags), "__data_file_open : no file name specified\n");
    EXPECT_EQ(refusal(dir_.path(), host_flags),
              "__data_file_open : data file[" + dir_.path() + "] is a directory\n");
    EXPECT_EQ(refusal(path(), DATA_FILE_MUST_EXIST),
              "__data_file_open : data file[" + path() + "] doesn't exist\n");
    EXPECT_FALSE(std::filesystem::exists(path()));

    for (const int64_t bytes :
         {correct_size - 1, correct_size + 1, int64_t{0}, (int64_t{1} << 32) + correct_size}) {
        SCOPED_TRACE(bytes);
        write_file_of(bytes);
        EXPECT_EQ(refusal(path(), host_flags), "__data_file_open : file[" + path() + "] size[" +
                                                   std::to_string(std::min<int64_t>(bytes, INT32_MAX)) +
                                                   "] - correct[5800544]\n");
    }
    write_file_of(correct_size);
    const std::string failure = " [" + path() + "] (28)[" + strerror(ENOSPC) + "]\n";
    const std::pair<call, std::string> steps[] = {
        {call::open_file, "opening"}, {call::reserve_blocks, "extending"}, {call::map_shared, "mmap on"}};
    for (const auto& [which, what] : steps) {
        fake_os::fail(which, 1, ENOSPC);
        EXPECT_EQ(refusal(path(), host_flags), "__data_file_open : failed " + what + failure);
        EXPECT_TRUE(std::filesystem::exists(path()));
    }
    EXPECT_THAT(fake_os::captured_stderr([&] { EXPECT_EQ(perf_file_size((path() + "x").c_str()), -1); }),
                EndsWith("Failed stat on '" + path() + "x' - 2 (No such file or directory)\n"));
}

TEST_F(data_file_test, AFileBeingCreatedByAnotherProcessIsWaitedFor)
{
    write_file_of(0);
    std::thread creator([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
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
    const std::string text = fake_os::captured_stderr([&] { open(host_flags | DATA_FILE_RESET); });
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
    const int fd = handle->fd;
    fake_os::fail(call::unmap, 1, EINVAL);
    fake_os::fail(call::close_file, 1, EIO);
    fake_os::fail(call::unlink_path, 1, EPERM);
    const std::string text = fake_os::captured_stderr([&] { __perf_data_file_close(handle, 1); });
    EXPECT_THAT(text, testing::ContainsRegex("perf_data_file_close : failed unmapping dfp\\[0x[0-9a-f]+\\] "
                                             "errno\\[22\\]\\(Invalid argument\\)\n"));
    EXPECT_THAT(text, testing::HasSubstr("failed closing fd[" + std::to_string(fd) +
                                         "] errno[5](Input/output error)\n"));
    EXPECT_THAT(text, EndsWith("failed unlinking path[" + path() + "] errno[1](Operation not permitted)\n"));
    EXPECT_EQ(fake_os::blocks_in_use(), 0);

    handle = __perf_data_file_open(path().c_str(), host_flags);
    __perf_data_file_close(handle, 1);
    EXPECT_FALSE(std::filesystem::exists(path()));
    __perf_data_file_close(nullptr, 1);
}

} // namespace
