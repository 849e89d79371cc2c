// The alarm configuration: one limit, and tables from files and texts.
#include <gmock/gmock.h>

#include <memory>
#include <string>

#include "perf_log/alarms/alarm_config.h"
#include "support/fake_os_fixture.h"
#include "support/temp_dir.h"

using namespace ostrum;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

constexpr int64_t second = 1'000'000'000;

class AlarmConfig : public fake_os_fixture {
protected:
    int32_t read(const char* path, const char* text)
    {
        int32_t count = 0;
        errors_ =
            fake_os::captured_stderr([&] { count = read_alarm_buckets(path, text, table_->entries()); });
        return count;
    }
    int32_t read_text(const std::string& text) { return read(nullptr, text.c_str()); }
    int32_t read_file(const std::string& text) { return read(dir_.write("alarms", text).c_str(), nullptr); }
    const alarm_entry* find(int32_t opcode, int32_t count)
    {
        return find_in_opcode_table(*table_->entries(), count, opcode);
    }

    struct big_table { // too large for the stack
        alarm_table* entries() { return &table; }
        alarm_table table;
    };
    std::unique_ptr<big_table> table_ = std::make_unique<big_table>();
    temp_dir dir_;
    std::string errors_;
};

TEST_F(AlarmConfig, ALimitIsThresholdFlagsAndSeverity)
{
    const struct {
        const char* text;
        int64_t threshold_tv;
        uint32_t flags;
        int32_t max_flist_bytes;
        const char* severity;
    } good[] = {
        {"0.5,-,MINOR", second / 2, 0x1, 0, "MINOR"},
        {"2,+8192,MAJOR", 2 * second, 0x3, 8192, "MAJOR"},
        {"10,*r,CRITICAL", 10 * second, 0xF, 0, "CRITICAL"},
        {"1,4096R+x", second, 0x1B, 4096, ""},
        {"1,+12q34", second, 0x3, 34, ""}, // the last number, other letters mean nothing
        {"1,-77", second, 0x1, 0, ""},     // no list to limit
        {"1,x", second, 0x10, 0, ""},      // no alarm bit
        {"1,+99999999999", second, 0x3, INT32_MAX, ""},
        {"3", 3 * second, 0, 0, ""},
        {"3,,LATE", 3 * second, 0, 0, "LATE"}, // tokens go by position
        {"0,-,0123456789012345678901234567890", 0, 0x1, 0, "0123456789012345678901234567890"},
    };
    for (const auto& c : good) {
        SCOPED_TRACE(c.text);
        alarm_limit limit{};
        EXPECT_EQ(parse_alarm_definition(c.text, &limit, 3), 0U);
        EXPECT_EQ(limit.threshold_tv, c.threshold_tv);
        EXPECT_EQ(limit.flags, c.flags);
        EXPECT_EQ(limit.max_flist_bytes, c.max_flist_bytes);
        EXPECT_STREQ(limit.severity, c.severity);
        EXPECT_EQ(limit.index, 3);
    }

    const struct {
        const char* text;
        const char* message;
    } bad[] = {
        {"1x,-", "parse_alarm_definition : token[0] - bad number[1x]\n"},
        {"-0.5,-", "parse_alarm_definition : token[0] - bad number[-0.5]\n"},
        {"1,-,01234567890123456789012345678901",
         "parse_alarm_definition : token[2] - severity[01234567890123456789012345678901] is too long (max "
         "32)\n"},
        {"1,-,A,B", "parse_alarm_definition : too many tokens[4] in string[1,-,A,B]\n"},
    };
    for (const auto& c : bad) {
        SCOPED_TRACE(c.text);
        alarm_limit limit{};
        const std::string errors = fake_os::captured_stderr(
            [&] { EXPECT_EQ(parse_alarm_definition(c.text, &limit, 0), 0xFFFFFFFFU); });
        EXPECT_THAT(errors, HasSubstr(c.message));
        EXPECT_THAT(errors, EndsWith("parse_alarm_definition : failed parsing string[" + std::string(c.text) +
                                     "]\n"));
    }
    alarm_limit limit{};
    EXPECT_THAT(fake_os::captured_stderr([&] { parse_alarm_definition(nullptr, &limit, 0); }),
                EndsWith("parse_alarm_definition : NULL input parameters\n"));
    fake_os::fail(fake_os::call::allocate, 1, ENOMEM);
    EXPECT_THAT(fake_os::captured_stderr([&] { EXPECT_NE(parse_alarm_definition("1", &limit, 0), 0U); }),
                EndsWith("parse_alarm_definition : out of memory\n"));
}

TEST_F(AlarmConfig, FlagsAreDescribed)
{
    char text[128] = "old";
    EXPECT_STREQ(get_alarm_flags_descr(0xB, sizeof(text), text),
                 "[0xb] (LOG-FLIST[YES] FULL-STACK[NO] RECURRING[YES])");
    EXPECT_STREQ(get_alarm_flags_descr(0, sizeof(text), text), "");
    EXPECT_STREQ(get_alarm_flags_descr(1, 0, text), "");
    EXPECT_STREQ(get_alarm_flags_descr(1, 9, nullptr), "");
}

TEST_F(AlarmConfig, AFileFillsTheTable)
{
    set_debug_bits(debug_general);
    const int32_t count = read_file("# opcode  limits\n\n7\t1,-,SLOW 2.5,*r\n*   30,-,WARNING\n3 0.5\n");
    EXPECT_EQ(count, 3);
    EXPECT_EQ(find(7, count)->limit_count, 2);
    EXPECT_EQ(find(7, count)->limits[1].index, 1);
    EXPECT_EQ(find(3, count)->limits[0].threshold_tv, second / 2);
    EXPECT_STREQ(find(4711, count)->limits[0].severity, "WARNING");
    EXPECT_THAT(errors_, HasSubstr("alarms' with 3 opcodes:\n"));
    EXPECT_THAT(
        errors_,
        HasSubstr("print_alarm_bucket :   bucket  1 = 2.500000000 ([0xf] (LOG-FLIST[YES] FULL-STACK[YES] "
                  "RECURRING[YES]))  (max flist size 0 bytes)\n"));
    EXPECT_THAT(
        errors_,
        HasSubstr("print_alarm_bucket :   bucket  0 = 0.500000000 (no alarm)  (max flist size 0 bytes)\n"));
    EXPECT_THAT(errors_, HasSubstr("print_alarm_bucket : opcode 0 (default):\n"));

    EXPECT_EQ(read_text("1,- 2,r"), 1) << "a text is the default entry's limits";
    EXPECT_EQ(find(4711, 1)->limit_count, 2);
}

TEST_F(AlarmConfig, WhatIsWrongFailsTheWholeTable)
{
    const std::string limits8 = "1 1 1 1 1 1 1 1";
    const std::pair<std::string, const char*> cases[] = {
        {"nothing_known 1\n", "read_alarm_buckets : ERROR - bad opcode[nothing_known] at line number[1]\n"},
        {"3 1\n 7 1\n", "read_alarm_buckets : ERROR - bad opcode[] at line number[2]\n"},
        {"3 1 a,-\n", "read_alarm_buckets : bad alarm limit[a,-]\n"},
        {"#\n3 " + limits8 + " 1\n",
         "read_alarm_buckets : too many limits in config file at line[2] for opcode[3]  (max is 8).\n"},
        {"3 1,r 2,-\n",
         "read_alarm_buckets : recurring flag only allowed on last bucket - error line_number[1]\n"},
    };
    for (const auto& [file, message] : cases) {
        SCOPED_TRACE(file);
        EXPECT_EQ(read_file(file), -1);
        EXPECT_THAT(errors_, EndsWith(message));
    }
    EXPECT_EQ(read_file("3 " + limits8 + "\n3 1,- 2,r\n"), 2);

    EXPECT_EQ(read("a", "b"), -1);
    EXPECT_THAT(errors_, testing::ContainsRegex(
                             "cannot pass file\\[0x[0-9a-f]+\\]\\(a\\) and string\\[0x[0-9a-f]+\\]\\(b\\)"));
    EXPECT_EQ(read("", nullptr), -1);
    EXPECT_THAT(errors_, EndsWith("read_alarm_buckets : no file path or string provided\n"));
    EXPECT_EQ(read((dir_.path() + "/none").c_str(), ""), -1);
    EXPECT_THAT(errors_, EndsWith("/none] - errno[2](No such file or directory)\n"));
    EXPECT_EQ(read_text(std::string(1021, ' ')), 1);
    EXPECT_EQ(read_text(std::string(1022, ' ')), -1);
    EXPECT_THAT(errors_,
                EndsWith("read_alarm_buckets : ERROR string too long - 1022 chars (max allowed is 1023)\n"));
}

TEST_F(AlarmConfig, TheThousandthNameEndsTheReading)
{
    std::string text = "* 9\n";
    for (int i = 1; i <= 1005; ++i) {
        text += std::to_string(2000 - i) + " 1\n";
    }
    const int32_t count = read_file(text + "bad_name_that_is_not_reached 1\n");
    EXPECT_EQ(count, 1000) << "999 names and the default";
    EXPECT_THAT(errors_, EndsWith("alarms] (max is 1000)\n"));
    EXPECT_EQ(find(1001, count)->opcode, 1001U);
    EXPECT_EQ(find(1000, count)->opcode, 0U);
}

} // namespace
