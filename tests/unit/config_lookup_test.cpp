// Built twice: with the reference platform, and without one, where only the environment counts.
#include "config/lookup.h"
#include "config/program_name.h"
#include "host_access/bindings.h"
#include "support/fake_os.h"
#include "support/working_dir.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

namespace {

using fake_os::call;

bool with_platform()
{
    return qel_conf != nullptr;
}

class ConfigLookup : public testing::Test {
protected:
    void SetUp() override { fake_os::reset(); }
    void TearDown() override
    {
        fake_os::reset();
        unsetenv("QEL_HOME");
    }
    working_dir dir_;
};

std::string text_setting(const char* key)
{
    char* text = __perfconf_str(key);
    std::string copy = text != nullptr ? text : "(null)";
    __perfconf_free(&text);
    EXPECT_EQ(text, nullptr);
    return copy;
}

TEST_F(ConfigLookup, IntegersOfTheEnvironment)
{
    const struct {
        const char* value;
        int32_t number;
        bool accepted;
    } cases[] = {
        {nullptr, 0, true},
        {"42", 42, true},
        {"0x2A", 42, true},
        {"052", 42, true},
        {"-5", -5, true},
        {" 7", 7, true},
        {"12 abc", 12, true},
        {"12\n", 12, true},
        {"4294967297", 1, true},
        {"12abc", 0, false},
        {"", 0, false},
        {" ", 0, false},
        {"08", 0, false},
        {"99999999999999999999", 0, false},
        {"9223372036854775808", 0, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value != nullptr ? c.value : "(unset)");
        fake_os::set_environment("OSTRUM_MAX_LOG_SIZE", c.value);
        int32_t number = -1;
        const std::string said =
            fake_os::captured_stderr([&] { number = __perfconf_int("ostrum_max_log_size"); });
        EXPECT_EQ(number, c.number);
        const std::string line = "__perf_conf_int : ERROR : variable[OSTRUM_MAX_LOG_SIZE] value[" +
                                 std::string(c.value != nullptr ? c.value : "") + "] is not a valid number\n";
        EXPECT_EQ(said.empty(), c.accepted);
        EXPECT_EQ(said.find(line) != std::string::npos, !c.accepted) << said;
    }
}

TEST_F(ConfigLookup, Booleans)
{
    const std::pair<const char*, int32_t> cases[] = {{nullptr, 0}, {"yes", 1},  {"Yes", 1},  {"Y", 1},
                                                     {"1", 1},     {"", 0},     {"true", 0}, {"on", 0},
                                                     {"2", 0},     {"YES ", 0}, {"01", 0},   {"no", 0}};
    for (const auto& [value, expected] : cases) {
        SCOPED_TRACE(value != nullptr ? value : "(unset)");
        fake_os::set_environment("OSTRUM_DATA_FILE_RESET", value);
        EXPECT_EQ(__perfconf_bool("ostrum_data_file_reset"), expected);
    }
    EXPECT_EQ(fake_os::blocks_in_use(), 0);
}

TEST_F(ConfigLookup, TheFileComesBeforeTheEnvironment)
{
    dir_.write("qel.conf", "[ostrum]\nostrum_text = from file\nostrum_number = 0x10\nostrum_flag = y\n"
                           "ostrum_bad = 1x\n[other]\nostrum_elsewhere = 1\n");
    for (const char* name :
         {"OSTRUM_TEXT", "OSTRUM_NUMBER", "OSTRUM_FLAG", "OSTRUM_BAD", "OSTRUM_ELSEWHERE", "OSTRUM_ONLY"}) {
        fake_os::set_environment(name, "7");
    }
    EXPECT_EQ(text_setting("ostrum_text"), with_platform() ? "from file" : "7");
    EXPECT_EQ(__perfconf_int("ostrum_number"), with_platform() ? 16 : 7);
    EXPECT_EQ(__perfconf_bool("ostrum_flag"), with_platform() ? 1 : 0);
    EXPECT_EQ(__perfconf_int("ostrum_bad"), 7); // the host refuses it
    EXPECT_EQ(__perfconf_int("ostrum_elsewhere"), 7);
    EXPECT_EQ(text_setting("ostrum_only"), "7");
    EXPECT_EQ(text_setting("ostrum_unset"), "(null)");
    EXPECT_EQ(text_setting(nullptr), "(null)");
    EXPECT_EQ(__perfconf_int(nullptr), 0);
    EXPECT_EQ(fake_os::blocks_in_use(), 0);
}

TEST_F(ConfigLookup, AFileOfTheHomeCountsForIntegersOnly)
{
    std::filesystem::create_directories(dir_.file("config"));
    dir_.write("config/qel.conf", "[ostrum]\nostrum_value = 5\n");
    setenv("QEL_HOME", dir_.path().c_str(), 1); // both the library and the platform read it
    fake_os::set_environment("OSTRUM_VALUE", "1");
    EXPECT_EQ(__perfconf_int("ostrum_value"), with_platform() ? 5 : 1);
    EXPECT_EQ(text_setting("ostrum_value"), "1");

    std::filesystem::create_directory(dir_.file("qel.conf")); // no file: changes nothing
    EXPECT_EQ(__perfconf_int("ostrum_value"), with_platform() ? 5 : 1);
    EXPECT_EQ(text_setting("ostrum_value"), "1");
}

TEST_F(ConfigLookup, NoMemoryIsAnUnsetValue)
{
    fake_os::set_environment("OSTRUM_DEBUG", "1");
    int64_t nth = 1;
    for (; text_setting("ostrum_debug") == "(null)" || nth == 1; ++nth) {
        ASSERT_LT(nth, 10);
        fake_os::fail(call::allocate, nth, ENOMEM);
    }
    EXPECT_EQ(nth, 4); // the name, then the copy, then neither
    fake_os::fail(call::allocate, 1, ENOMEM, true);
    EXPECT_EQ(__perfconf_int("ostrum_debug"), 0);
    EXPECT_EQ(__perfconf_bool("ostrum_debug"), 0);
    EXPECT_EQ(fake_os::blocks_in_use(), 0);
}

TEST_F(ConfigLookup, FileExistsTellsFilesFromDirectories)
{
    EXPECT_EQ(file_exists(dir_.write("file", "").c_str()), 1);
    EXPECT_EQ(file_exists("/dev/null"), 1);
    EXPECT_EQ(file_exists(dir_.path().c_str()), -1);
    EXPECT_EQ(file_exists(dir_.file("missing").c_str()), 0);
    EXPECT_EQ(file_exists(nullptr), 0);
}

const char* correlation = nullptr;

TEST(ProgramName, IsTheThirdFieldOfTheCorrelation)
{
    ostrum::bound_host_services().get_correlation = [] { return correlation; };
    const struct {
        const char* text;
        int32_t size;
        const char* program;
    } cases[] = {
        {"a:b:prog:rest", 128, "prog"},
        {"::p:", 128, "p"},
        {"a:b:c:d:e", 128, "c"},
        {"a:b::d", 128, ""},
        {"a:b:prog", 128, ""},
        {"", 128, ""},
        {nullptr, 128, ""},
        {"a:b:abcdef:", 8, "abcdef"},
        {"a:b:abcdef:", 7, "abcde"},
        {"a:b:abcdef:", 2, ""},
        {"a:b:abcdef:", 1, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.text != nullptr ? c.text : "(null)") + " in " + std::to_string(c.size));
        correlation = c.text;
        std::string out(129, '#');
        EXPECT_EQ(get_program(out.data(), c.size), out.data());
        EXPECT_STREQ(out.c_str(), c.program);
        EXPECT_EQ(out.find_first_not_of('#', static_cast<size_t>(c.size)), std::string::npos);
    }
    ostrum::bound_host_services() = {};
}

TEST(ProgramName, IsReadAgainWhenTheCorrelationIsAnother)
{
    ostrum::bound_host_services().get_correlation = [] { return correlation; };
    ostrum::known_correlation known;
    char program[128] = "";
    for (const char* name : {"one", "two", ""}) {
        const std::string id = "a:b:" + std::string(name) + ":rest";
        correlation = id.c_str();
        ostrum::refresh_program(program, sizeof(program), known);
        EXPECT_STREQ(program, name);
        program[0] = '#';
        ostrum::refresh_program(program, sizeof(program), known);
        EXPECT_EQ(program[0], '#') << "read again though it is the same";
    }
    ostrum::bound_host_services() = {};
}

} // namespace
