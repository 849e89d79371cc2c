#include "component/data_file_fixture.h"

using fake_os::captured_stderr;

namespace {

class variables_test : public data_file_fixture {
protected:
    variables_test() { open(); }

    std::string text_of(const char* name)
    {
        const c_block<char> text(perf_data_file_var_get(handle_, nullptr, name));
        return text ? text.get() : "(null)";
    }
};

TEST_F(variables_test, LimitsOfNamesAndValues)
{
    const std::string name(127, 'n');
    const std::string value(1023, 'v');
    EXPECT_NE(rt_variable_add(handle_, name.c_str(), value.c_str(), 0), nullptr);
    EXPECT_EQ(text_of(name.c_str()), value);

    const std::string long_name = name + "n";
    const std::string long_value = value + "v";
    const struct {
        rt_info* handle;
        const char* name;
        const char* value;
        std::string message; // with the addresses as patterns
    } refused[] = {
        {nullptr, "a", "b",
         "rtip\\[\\(nil\\)\\] name\\[0x[0-9a-f]+\\]\\(a\\)\\(1/128\\) "
         "value\\[0x[0-9a-f]+\\]\\(b\\)\\(1/1024\\)\n"},
        {handle_, nullptr, "b", "name\\[\\(nil\\)\\]\\(\\)\\(0/128\\) "},
        {handle_, "a", nullptr, "value\\[\\(nil\\)\\]\\(\\)\\(0/1024\\)\n"},
        {handle_, long_name.c_str(), "b", "\\(n+\\)\\(128/128\\) "},
        {handle_, "a", long_value.c_str(), "\\(v+\\)\\(1024/1024\\)\n"},
    };
    for (const auto& r : refused) {
        const std::string text =
            captured_stderr([&] { EXPECT_EQ(rt_variable_add(r.handle, r.name, r.value, 1), nullptr); });
        EXPECT_THAT(text, testing::ContainsRegex("rt_variable_add : bad input - .*" + r.message));
    }
    int32_t count = 5;
    EXPECT_EQ(rt_variables_copy(handle_, long_name.c_str(), &count), nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(image().variable_count, 1U);
}

TEST_F(variables_test, NumbersAreReadFromTexts)
{
    const std::tuple<const char*, int32_t, double> cases[] = {
        {"12abc", 12, 12.0}, {"", 0, 0.0},
        {"x", 0, 0.0},       {" -7", -7, -7.0},
        {"0x10", 0, 16.0},   {"4294967298", 2, 4294967298.0},
        {"010", 10, 10.0},   {"99999999999999999999", -1, 1e20},
    };
    ostrum::variable_entry* entry = rt_variable_add(handle_, "v", "", 0);
    for (const auto& [text, number, real] : cases) {
        SCOPED_TRACE(text);
        errno = 0;
        rt_variable_set_str(entry, text);
        EXPECT_EQ(rt_variable_get_int(entry), number);
        EXPECT_DOUBLE_EQ(rt_variable_get_double(entry), real);
        EXPECT_EQ(errno, 0);
    }
    rt_variable_set_int(entry, INT32_MIN);
    EXPECT_STREQ(entry->value, "-2147483648");
    rt_variable_set_double(entry, 2.5);
    EXPECT_STREQ(entry->value, "2.500000");
    rt_variable_set_double(entry, 1e300);
    EXPECT_EQ(strlen(entry->value), 127U);
    rt_variable_set_str(entry, std::string(2000, 'v').c_str());
    EXPECT_EQ(strlen(entry->value), 1023U);
    rt_variable_set_str(entry, nullptr);
    rt_variable_set_str(nullptr, "x");
    EXPECT_EQ(rt_variable_get_int(nullptr), 0);
    EXPECT_EQ(rt_variable_get_str(nullptr), nullptr);
    memset(entry->value, 'v', ostrum::variable_value_bytes); // as no program of ours leaves it
    EXPECT_EQ(text_of("v").size(), 1023U);
    fake_os::fail(fake_os::call::allocate, 1, ENOMEM);
    EXPECT_EQ(text_of("v"), "(null)");
}

TEST_F(variables_test, OnlyTheInsertPathAdvancesTheModifiedTime)
{
    int64_t clock = 1000;
    // Runs a step at a new time; whether the file shows that time then.
    const auto advances = [&](auto step) {
        fake_os::freeze_clock(++clock);
        step();
        return perf_data_file_var_last_mod_t(handle_) == clock;
    };
    // A missing variable is created by its first reader.
    ostrum::variable_entry* cache = nullptr;
    EXPECT_TRUE(advances([&] { perf_data_file_var_get_int(handle_, &cache, "time_on"); }));
    EXPECT_EQ(text_of("time_on"), "0");
    EXPECT_EQ(text_of("trace_opcodes"), "");
    EXPECT_EQ(text_of("Time_on"), "") << "names are case-sensitive";
    ASSERT_EQ(cache, &image().variables[0]);
    EXPECT_FALSE(advances([&] { perf_data_file_var_get_int(handle_, nullptr, "time_on"); }));
    EXPECT_TRUE(advances([&] { EXPECT_EQ(perf_data_file_var_set(handle_, nullptr, "time_on", "1"), 0); }));
    EXPECT_FALSE(advances([&] { EXPECT_EQ(perf_data_file_var_set_int(handle_, &cache, "time_on", 2), 0); }));
    EXPECT_EQ(text_of("time_on"), "2");
    EXPECT_EQ(perf_data_file_var_get_int(handle_, &cache, "another name, which a filled cache ignores"), 2);

    ostrum::variable_entry* filled_by_set = nullptr;
    EXPECT_EQ(perf_data_file_var_set(handle_, &filled_by_set, "new", "x"), 0);
    EXPECT_STREQ(filled_by_set->name, "new");
}

} // namespace
