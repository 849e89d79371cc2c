#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "perf_log/buckets/bucket_file.h"
#include "support/fake_os_fixture.h"
#include "support/temp_dir.h"

using ostrum::find_opcode_buckets;
using ostrum::opcode_bucket_count;
using ostrum::opcode_buckets;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

class BucketFile : public fake_os_fixture {
protected:
    // Result of loading the text; errors_ receives standard error.
    int32_t load(const std::string& text) { return load_file(dir_.write("buckets", text)); }
    int32_t load_file(const std::string& path)
    {
        int32_t result = 0;
        errors_ = fake_os::captured_stderr([&] { result = read_opcode_buckets(path.c_str()); });
        EXPECT_EQ(opcode_bucket_count(), result < 0 ? 0 : result);
        return result;
    }
    int64_t lines() const { return std::count(errors_.begin(), errors_.end(), '\n'); }

    // The thresholds that an opcode's calls go by, as text; "-" for none.
    static std::string thresholds(int32_t opcode)
    {
        const opcode_buckets* entry = find_opcode_buckets(opcode);
        if (entry == nullptr) {
            return "-";
        }
        std::string text;
        for (int32_t i = 0; i < entry->threshold_count; ++i) {
            text += (i > 0 ? " " : "") + std::to_string(entry->thresholds[i]);
        }
        return text;
    }

    temp_dir dir_;
    std::string errors_;
};

std::string numbered_lines(int from, int to)
{
    std::string text;
    for (int n = from; n <= to; ++n) {
        text += std::to_string(n) + " 1\n";
    }
    return text;
}

} // namespace

TEST_F(BucketFile, LinesAreReadAsTheFormatSays)
{
    const struct {
        const char* text;
        int32_t result;
        int32_t opcode;
        const char* thresholds;
        const char* error; // how standard error ends, after the line's prefix
    } cases[] = {
        {"", 0, 3, "-", ""},
        {"# 3 1\n\n", 0, 3, "-", ""},
        {"3 0.01 0.1 1\n", 1, 3, "10000000 100000000 1000000000", ""},
        {"3 1 0.5", 1, 3, "1000000000 500000000", ""}, // not sorted; no line end
        {"3\t \t1  2 \t\n", 1, 3, "1000000000 2000000000", ""},
        {"3\n", 1, 3, "", ""},
        {"3 1\n", 1, 4, "-", ""},
        {"* 1 2\n", 1, 4711, "1000000000 2000000000", ""},
        {"* 1\n3 2\n* 3\n", 2, 4, "3000000000", ""},
        {"3 2\n* 1\n", 2, 3, "2000000000", ""},
        {"7 1\n3 2\n7 3\n", 3, 7, "1000000000", ""}, // of equal opcodes the first
        {"5 5\n-6 6\n1 1\n-1 2\n", 4, -1, "2000000000", ""},
        {"2147483647 1\n-2147483647 2\n* 3\n", 3, -2147483647, "2000000000", ""},
        {" 3 1\n", 0, 3, "-", "bad opcode[] at line[1]\n"},
        {"#\n\t* 1\n4 1\n", 1, 4, "1000000000", "bad opcode[] at line[2]\n"},
        {"0 1\n", 0, 0, "-", "bad opcode[0] at line[1]\n"},
        {"** 1\n", 0, 3, "-", "bad opcode[**] at line[1]\n"},
        {"none x\n3 1\n", 1, 3, "1000000000", "bad opcode[none] at line[1]\n"}, // its threshold is not read
        {"3 1\n4 1 x 2\n5 1\n", -1, 3, "-", "bad threshold 'x' (1) for opcode '4' in file 'buckets'.\n"},
        {"* -1\n", -1, 3, "-", "bad threshold '-1' (0) for opcode '0' in file 'buckets'.\n"},
        {"3 -0.5\n", -1, 3, "-", "bad threshold '-0.5' (0) for opcode '3' in file 'buckets'.\n"},
    };
    ASSERT_EQ(chdir(dir_.path().c_str()), 0);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        dir_.write("buckets", c.text);
        EXPECT_EQ(load_file("buckets"), c.result);
        EXPECT_EQ(thresholds(c.opcode), c.thresholds);
        EXPECT_THAT(errors_, EndsWith(c.error));
        EXPECT_EQ(errors_.empty(), *c.error == '\0');
    }
}

// What is read of such files is compared with a second reading by the fuzz target.
TEST_F(BucketFile, TooManyOpcodesOrThresholdsAreReported)
{
    EXPECT_EQ(load(numbered_lines(1, 1001) + "* 2\n"), 1000);
    EXPECT_EQ(lines(), 2);
    EXPECT_THAT(errors_, EndsWith("] (max is 1000)\n"));
    EXPECT_EQ(thresholds(999), "1000000000");
    EXPECT_EQ(thresholds(1000), "2000000000");
    std::string line = "3";
    for (int n = 0; n < 101; ++n) {
        line += " 1";
    }
    EXPECT_EQ(load(line + " x\n4 1\n"), 2);
    EXPECT_EQ(find_opcode_buckets(3)->threshold_count, 100);
    EXPECT_EQ(lines(), 1);
    EXPECT_THAT(errors_, HasSubstr("read_opcode_buckets : too many thresholds in bucket file. ["));
}

TEST_F(BucketFile, AFileThatIsTheLogOfItsOwnComplaintsEnds)
{
    const std::string path = dir_.write("log", "nonsense\n");
    const int saved = dup(STDERR_FILENO);
    const int log = open(path.c_str(), O_WRONLY | O_APPEND);
    dup2(log, STDERR_FILENO);
    const int32_t result = read_opcode_buckets(path.c_str());
    dup2(saved, STDERR_FILENO);
    close(saved);
    close(log);
    EXPECT_EQ(result, 0);
}

TEST_F(BucketFile, OnlyRegularFilesAreReadAndFailuresLeaveNoBuckets)
{
    const std::string fifo = dir_.file("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::pair<std::string, int> cases[] = {{dir_.file("missing"), ENOENT},
                                                 {dir_.path(), EISDIR},
                                                 {fifo, EINVAL},
                                                 {"/dev/zero", EINVAL},
                                                 {"", ENOENT}};
    for (const auto& [path, error] : cases) {
        SCOPED_TRACE(path);
        load("* 1\n");
        EXPECT_EQ(load_file(path), 0);
        EXPECT_EQ(thresholds(3), "-");
        EXPECT_THAT(errors_,
                    EndsWith("read_opcode_buckets : ERROR - Failed opening opcode bucket file '" + path +
                             "' - " + std::to_string(error) + " (" + strerror(error) + ")\n"));
    }
    fake_os::fail(fake_os::call::status_of_file, 1, EIO);
    EXPECT_EQ(load("* 1\n"), 0);
    EXPECT_THAT(errors_, HasSubstr("' - " + std::to_string(EIO) + " ("));
    // The second read fails: once by a signal, then for good.
    const std::string text = numbered_lines(1, 900);
    fake_os::fail(fake_os::call::read_file, 2, EINTR);
    EXPECT_EQ(load(text), 900);
    fake_os::fail(fake_os::call::read_file, 2, EIO);
    EXPECT_EQ(load(text), 0);
    EXPECT_EQ(thresholds(1), "-");
    EXPECT_THAT(errors_, HasSubstr("read_opcode_buckets : ERROR - Failed reading opcode bucket file '"));
}

TEST_F(BucketFile, TheListingIsSortedWithTheDefaultLast)
{
    ostrum::set_debug_bits(ostrum::debug_general);
    load("* 12.000000034\n7\n-2 1 2.5\n");
    std::string listing;
    for (size_t at = 0, end = 0; (end = errors_.find('\n', at)) != std::string::npos; at = end + 1) {
        const size_t text = errors_.find(" : ", at) + 3; // behind time and ids
        listing += errors_.substr(text, end + 1 - text);
    }
    EXPECT_EQ(listing, "read_opcode_buckets : loaded opcode buckets file '" + dir_.file("buckets") +
                           "' with 3 opcodes:\n"
                           "print_opcode_bucket : opcode -2 (VRT_OP_ELAPSED):\n"
                           "print_opcode_bucket :   bucket  0 = 1.000000000\n"
                           "print_opcode_bucket :   bucket  1 = 2.500000000\n"
                           "print_opcode_bucket : opcode 7 (*):\n"
                           "print_opcode_bucket : opcode 0 (*):\n"
                           "print_opcode_bucket :   bucket  0 = 12.000000034\n");
}
