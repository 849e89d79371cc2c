// Built twice: with the reference platform, and without one, where only the environment counts.
#include "config/lookup.h"
#include "config/program_name.h"
#include "host_access/bindings.h"
#include "support/fake_os_fixture.h"
#include "support/working_dir.h"

#include <cerrno>
#include <cstdlib>
#include <optional>

#include <gmock/gmock.h>

namespace {

using fake_os::call;
using fake_os::captured_stderr;
using testing::EndsWith;

bool with_platform()
{
    return qel_conf != nullptr;
}

class ConfigLookup : public fake_os_fixture {
protected:
    ~ConfigLookup() override { unsetenv("QEL_HOME"); }
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
    const std::pair<const char*, std::optional<int32_t>> cases[] = {{nullptr, 0},
                                                                    {"42", 42},
                                                                    {"0x2A", 42},
                                                                    {"052", 42},
                                                                    {"-5", -5},
                                                                    {" 7", 7},
                                                                    {"12 abc", 12},
                                                                    {"12\n", 12},
                                                                    {"12abc", {}},
                                                                    {"", {}},
                                                                    {" ", {}},
                                                                    {"08", {}},
                                                                    {"4294967297", 1},
                                                                    {"99999999999999999999", {}},
                                                                    {"9223372036854775808", {}}};
    for (const auto& [value, number] : cases) {
        const std::string shown = value != nullptr ? value : "(unset)";
        SCOPED_TRACE(shown);
        fake_os::set_environment("OSTRUM_MAX_LOG_SIZE", value);
        const std::string said = captured_stderr([&, expected = number.value_or(0)] {
            EXPECT_EQ(__perfconf_int("ostrum_max_log_size"), expected);
        });
        EXPECT_EQ(said.empty(), number.has_value());
        EXPECT_THAT(said, EndsWith(number ? ""
                                          : "__perf_conf_int : ERROR : variable[OSTRUM_MAX_LOG_SIZE] value[" +
                                                shown + "] is not a valid number\n"));
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
    const std::tuple<const char*, int32_t, const char*> cases[] = {
        {"a:b:prog:rest", 128, "prog"}, {"::p:", 128, "p"},
        {"a:b:c:d:e", 128, "c"},        {"a:b::d", 128, ""},
        {"a:b:prog", 128, ""},          {"", 128, ""},
        {"a:b:abcdef:", 8, "abcdef"},   {nullptr, 128, ""},
        {"a:b:abcdef:", 7, "abcde"},    {"a:b:abcdef:", 2, ""},
        {"a:b:abcdef:", 1, ""}};
    for (const auto& [text, size, program] : cases) {
        SCOPED_TRACE(std::string(text != nullptr ? text : "(null)") + " in " + std::to_string(size));
        correlation = text;
        std::string out(129, '#');
        EXPECT_EQ(get_program(out.data(), size), out.data());
        EXPECT_STREQ(out.c_str(), program);
        EXPECT_EQ(out.find_first_not_of('#', static_cast<size_t>(size)), std::string::npos);
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
