#include "host_abi/host_services.h"
#include "support/fake_os_fixture.h"
#include "util/decimal_text.h"
#include "util/local_time.h"
#include "util/time_value.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <sys/wait.h>
#include <unistd.h>

// The platform's services for its users, absent in the build of this test without it.
extern "C" {
QEL_API double nmu_decimal_to_double(const nmu_decimal_t* d);
QEL_API void nmu_decimal_destroy(nmu_decimal_t* d);
}

namespace {

using fake_os::call;
using namespace ostrum;

constexpr int64_t afternoon_tv = 1'763'212'641'123'456'789; // 2025/11/15 13:17:21 UTC

using TimeTest = fake_os_fixture;

std::string formatted(int64_t tv, uint32_t code)
{
    char buf[64];
    EXPECT_EQ(ostrum_fmt_tv(tv, buf, sizeof(buf), code), buf);
    return buf;
}

TEST_F(TimeTest, EveryFormAndItsOddities)
{
    const std::tuple<int64_t, uint32_t, const char*> cases[] = {
        {12'345'678'901, 0, "12"},
        {12'345'678'901, 3, "12.345"},
        {12'345'678'901, 6, "12.345678"},
        {12'005'678'901, 0xFFFFFE03, "12.005"},
        {afternoon_tv, 9, "1763212641.123456789"},
        {afternoon_tv, 0x10, "15/11/2025 13:17:21"},
        {afternoon_tv, 22, "15/11/2025 13:17:21.123456"},
        {afternoon_tv, 0x20, "2025/11/15 13:17:21"},
        {afternoon_tv, 38, "2025/11/15 13:17:21.123456"},
        {afternoon_tv, 0x30, "15112025131721"},
        {afternoon_tv, 0x40, "20251115131721"},
        {afternoon_tv, 0x143, "20251115131721.123"},
        {1'234'500'000'000, 0x109, "1,234.500000000"},
        {999'000'000'000, 0x109, "999.000000000"},
        {1'000'000'000'000, 0x100, "1,000"},
        {2'147'483'648 * ostrum::tv_per_s, 0, "-2147483648"},
        {1'234'567, 0x53, "1234.567"},
        {1'500, 0x53, "1.000"},
        {42, 0x53, "0.042"},
        {42, 0x50, "42"},
        {42, 0x5A, "0.0000000042"},
        {INT64_MAX, 0x150, "9,223,372,036,854,775,807"},
        {1, 0x0A, "bad format"},
        {1, 0x1A, "bad format"},
        {1, 0x60, "bad format"},
        {1, 0xF0, "bad format"}};
    for (const auto& [tv, code, text] : cases) {
        SCOPED_TRACE(testing::Message() << tv << " with code 0x" << std::hex << code);
        EXPECT_EQ(formatted(tv, code), text);
    }
}

TEST_F(TimeTest, InPlaceTextIsThatOfTheFormatterAndOfPrintf)
{
    fake_os::freeze_clock(afternoon_tv);
    for (const int64_t value :
         {int64_t{0}, int64_t{7}, int64_t{10}, int64_t{99}, int64_t{100}, int64_t{10'203}, tv_per_s - 1,
          tv_per_s, 10 * tv_per_s + 1, afternoon_tv, INT32_MAX * tv_per_s, (INT32_MAX + 1L) * tv_per_s + 5,
          INT64_MAX, int64_t{-1}, int64_t{-120}, INT64_MIN}) {
        SCOPED_TRACE(value);
        char text[longest_time];
        EXPECT_EQ(std::string(text, put_time(text, value)), value == 0 ? "0" : formatted(value, 9));
        EXPECT_EQ(std::string(text, put_number(text, value)), std::to_string(value));
        const auto bits = static_cast<uint64_t>(value);
        EXPECT_EQ(std::string(text, put_unsigned(text, bits)), std::to_string(bits));
    }
}

TEST_F(TimeTest, NegativeMeansNowInMicroseconds)
{
    fake_os::freeze_clock(afternoon_tv);
    EXPECT_EQ(formatted(-1, 38), "2025/11/15 13:17:21.123456");
    EXPECT_EQ(formatted(-7'000'000'000, 9), "1763212641.123456000");
    EXPECT_EQ(linux_gethrtime(), static_cast<uint64_t>(afternoon_tv));
    EXPECT_EQ(ostrum_now_tv(), afternoon_tv);
}

TEST_F(TimeTest, FailingClockAndCalendarGiveBadFormat)
{
    fake_os::fail(call::wall_clock, 1, EFAULT);
    EXPECT_EQ(formatted(-1, 6), "bad format");
    fake_os::fail(call::local_time, 1, EOVERFLOW);
    EXPECT_EQ(formatted(afternoon_tv, 22), "bad format");
    EXPECT_EQ(formatted(afternoon_tv, 22), "15/11/2025 13:17:21.123456");
}

TEST_F(TimeTest, TextIsCutToTheBuffer)
{
    char buf[32];
    for (const int32_t len : {0, 1, 2, 5, 12, 13, -3}) {
        SCOPED_TRACE(len);
        memset(buf, '#', sizeof(buf));
        ostrum_fmt_tv(1'234'500'000'000, buf, len, 0x106);
        const size_t kept = len > 0 ? static_cast<size_t>(len) : 0;
        const std::string whole = "1,234.500000";
        EXPECT_EQ(std::string(buf, kept), (whole.substr(0, kept == 0 ? 0 : kept - 1) + '\0').substr(0, kept));
        EXPECT_EQ(buf[kept], '#');
    }
    const char* shared = ostrum_fmt_tv(12'345'678'901, nullptr, 3, 9);
    EXPECT_STREQ(shared, "12.345678901");
}

TEST_F(TimeTest, PercentagesAndGroupedNumbers)
{
    char buf[32] = "";
    EXPECT_STREQ(ostrum_fmt_pct_tv(1, 3, buf, sizeof(buf), 2), "33.33");
    EXPECT_STREQ(ostrum_fmt_pct_tv(1, 0, buf, sizeof(buf), 2), "0.00");
    EXPECT_STREQ(ostrum_fmt_pct_tv(2, 3, buf, sizeof(buf), 0), "67");
    EXPECT_EQ(ostrum_fmt_pct_tv(1, 3, nullptr, 32, 2), nullptr);

    const std::pair<int64_t, const char*> numbers[] = {{0, "0"},
                                                       {999, "999"},
                                                       {-999, "-999"},
                                                       {1'000, "1,000"},
                                                       {-1'234, "-1,234"},
                                                       {1'234'567, "1,234,567"},
                                                       {1'000'000'007, "1,000,000,007"},
                                                       {INT64_MIN, "-9,223,372,036,854,775,808"}};
    for (const auto& [value, text] : numbers) {
        EXPECT_EQ(ostrum_fmt_int_with_commas(value, buf, sizeof(buf)), strlen(text));
        EXPECT_STREQ(buf, text);
    }
}

// Of plain decimals the fuzz target reckons the value itself.
TEST_F(TimeTest, ParsesSecondsWithFraction)
{
    const struct {
        const char* text;
        int64_t tv;
        const char* message; // of the diagnostic line; null: none
    } cases[] = {
        {nullptr, 0, nullptr},
        {"", 0, nullptr},
        {" +5", 5'000'000'000, nullptr},
        {"1.", 1'000'000'000, nullptr},
        {"1.50", 1'500'000'000, nullptr},
        {"1.123456789", 1'123'456'789, nullptr},
        {"1.0123456789", 1'012'345'678, nullptr},
        {"1.00000000000000000000000000000000000000005", 1'000'000'000, nullptr},
        {"9223372036.854775807", INT64_MAX, nullptr},
        {"x", -1, "invalid characters in string[x] at[x]\n"},
        {"2.x", -1, "invalid characters in string[2.x] at[x]\n"},
        {"2 s", -1, "invalid characters in string[2 s] at[ s]\n"},
        {"2.01s", -1, "invalid characters in string[2.01s] at[s]\n"},
        {"1.1234567890", -1, "str[1.1234567890] has too many decimal digits\n"},
        {"1.99999999999999999999", -1, "str[1.99999999999999999999] has too many decimal digits\n"},
        {"9223372036.854775808", -1, "str[9223372036.854775808] is out of range\n"},
        {"99999999999999999999", -1, "str[99999999999999999999] is out of range\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text != nullptr ? c.text : "(null)");
        const std::string said =
            fake_os::captured_stderr([&] { EXPECT_EQ(ostrum_string_to_tv(c.text), c.tv); });
        const size_t message = said.find(" : ostrum_string_to_tv : ");
        EXPECT_EQ(said.substr(std::min(message, said.size())),
                  c.message != nullptr ? std::string(" : ostrum_string_to_tv : ") + c.message : "");
    }
}

TEST_F(TimeTest, DecimalNeedsThePlatform)
{
    EXPECT_DOUBLE_EQ(ostrum_tv_to_double(-1'500'000'000), -1.5);
    auto* decimal = static_cast<nmu_decimal_t*>(ostrum_tv_to_decimal(1'500'000'000));
    ASSERT_EQ(decimal != nullptr, nmu_decimal_from_double != nullptr);
    if (decimal != nullptr) {
        EXPECT_DOUBLE_EQ(nmu_decimal_to_double(decimal), 1.5);
        nmu_decimal_destroy(decimal);
    }
}

// The zone is looked up once for a process, so each has one of its own.
TEST_F(TimeTest, LocalTimeIsThatOfTheCLibraryInEveryZone)
{
    for (const char* zone :
         {"UTC", "Europe/Berlin", "America/St_Johns", "Australia/Lord_Howe", "Africa/Casablanca"}) {
        const pid_t child = fork();
        if (child == 0) {
            setenv("TZ", zone, 1);
            tzset();
            fake_os::freeze_clock(afternoon_tv);
            ostrum::look_up_time_zone();
            fake_os::fail(call::local_time, 1, EOVERFLOW, true); // the look-ups below are all in the table
            for (time_t at = afternoon_tv / ostrum::tv_per_s; at < 1'763'212'641 + 94'000'000; at += 1'801) {
                tm expected{};
                tm found{};
                localtime_r(&at, &expected);
                if (!ostrum::local_fields(at, found) || timegm(&found) != timegm(&expected)) {
                    _exit(1);
                }
            }
            _exit(0);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0) << zone;
    }
}

} // namespace
