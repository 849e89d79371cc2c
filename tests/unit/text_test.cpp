#include "ostrum_util.h"
#include "support/fake_os.h"
#include "util/text.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <gtest/gtest.h>

namespace {

using fake_os::call;

using block_owner = std::unique_ptr<void, void (*)(void*)>;

// What a coding function gave, as a string; "(null)" for null.
template <typename Code, typename Input>
std::string coded(Code code, const Input& input)
{
    size_t length = 12345;
    const block_owner result(code(input.data(), input.size(), &length), free);
    if (!result) {
        EXPECT_EQ(length, 12345U);
        return "(null)";
    }
    return {static_cast<const char*>(result.get()), length};
}

TEST(ByteCoding, Base16)
{
    using namespace std::string_literals;
    EXPECT_EQ(coded(base16_encode, "\x00\x4a\xff"s), "004aff");
    EXPECT_EQ(coded(base16_decode, "004aff"s), "\x00\x4a\xff"s);
    EXPECT_EQ(coded(base16_decode, "4A"s), "\x44"); // a digit that is none repeats the one before
    EXPECT_EQ(coded(base16_decode, "zz1?Fe"s), "\x00\x11\x1e"s);
    EXPECT_EQ(coded(base16_decode, "abc"s), "(null)");
    EXPECT_EQ(coded(base16_encode, ""s), "");
}

TEST(ByteCoding, Base64)
{
    using namespace std::string_literals;
    const std::pair<std::string, std::string> both_ways[] = {
        {"", ""},        {"a", "YQ=="},        {"ab", "YWI="},
        {"abc", "YWJj"}, {"abcd", "YWJjZA=="}, {"\xfb\xff\xbf\x00\x00\x00"s, "+/+/AAAA"}};
    for (const auto& [bytes, text] : both_ways) {
        EXPECT_EQ(coded(base64_encode, bytes), text);
        EXPECT_EQ(coded(base64_decode, text), bytes);
    }
    EXPECT_EQ(coded(base64_decode, "YQ="s), "(null)");
    EXPECT_EQ(coded(base64_decode, "Y\xe9-\n"s), "\x60\x00\x00"s); // no digits of the alphabet: 0
}

TEST(ByteCoding, NoMemoryGivesNullAndNullsAreEmpty)
{
    for (const auto& run : {+[] { return coded(base16_encode, std::string("ab")); },
                            +[] { return coded(base16_decode, std::string("ab")); },
                            +[] { return coded(base64_encode, std::string("ab")); },
                            +[] { return coded(base64_decode, std::string("YWI=")); }}) {
        fake_os::reset();
        fake_os::fail(call::allocate, 1, ENOMEM);
        EXPECT_EQ(run(), "(null)");
    }
    fake_os::reset();
    size_t length = 1;
    free(base64_encode(nullptr, 5, &length));
    EXPECT_EQ(length, 0U);
    free(base16_encode("a", 1, nullptr));
}

using builder_ptr = std::unique_ptr<string_builder, void (*)(string_builder*)>;

builder_ptr make_builder(int32_t step)
{
    return {string_builder_create(step), string_builder_destroy};
}

TEST(StringBuilder, GrowsByWholeStepsAndStaysTerminated)
{
    fake_os::reset();
    const builder_ptr builder = make_builder(16); // two allocations
    EXPECT_EQ(string_builder_add_str(builder.get(), "12345678901234567890"), 0);
    EXPECT_EQ(fake_os::calls_made(call::allocate), 3); // to 32
    EXPECT_EQ(string_builder_add_data(builder.get(), "abc\0efghijk", 11), 0);
    EXPECT_EQ(fake_os::calls_made(call::allocate), 3); // 31 and the terminator
    EXPECT_EQ(string_builder_add_strfmt(builder.get(), "%d", 7), 0);
    EXPECT_EQ(fake_os::calls_made(call::allocate), 4);
    EXPECT_EQ(string_builder_used(builder.get()), 32);
    EXPECT_EQ(memcmp(string_builder_data(builder.get()), "12345678901234567890abc\0efghijk7", 33), 0);
}

TEST(StringBuilder, FormattedTextIsCutAt2047)
{
    const builder_ptr builder = make_builder(0);
    EXPECT_EQ(string_builder_add_strfmt(builder.get(), "%s", std::string(3000, 'x').c_str()), 0);
    EXPECT_EQ(string_builder_data(builder.get()), std::string(2047, 'x'));
}

TEST(StringBuilder, ResetMovesButKeepsTheLength)
{
    const builder_ptr builder = make_builder(16);
    string_builder_add_str(builder.get(), "abcdef");
    string_builder_reset(builder.get(), 4);
    EXPECT_STREQ(string_builder_data(builder.get()), "efcdef");
    EXPECT_EQ(string_builder_used(builder.get()), 6);
    for (const int32_t emptying : {6, 0, -1}) {
        string_builder_add_str(builder.get(), "abcdef");
        string_builder_reset(builder.get(), emptying == 6 ? string_builder_used(builder.get()) : emptying);
        EXPECT_EQ(string_builder_used(builder.get()), 0);
        EXPECT_STREQ(string_builder_data(builder.get()), "");
    }
}

TEST(StringBuilder, TakenDataIsTheCallersAndTheBuilderGoesOn)
{
    const builder_ptr builder = make_builder(16);
    string_builder_add_str(builder.get(), "first");
    const block_owner taken(string_builder_take_data(builder.get()), free);
    EXPECT_STREQ(static_cast<char*>(taken.get()), "first");
    EXPECT_EQ(string_builder_data(builder.get()), nullptr);
    EXPECT_EQ(string_builder_used(builder.get()), 0);
    EXPECT_EQ(string_builder_add_str(builder.get(), nullptr), 0);
    EXPECT_STREQ(string_builder_data(builder.get()), "");
}

TEST(StringBuilder, NoMemoryLosesTheContentOnly)
{
    for (const int64_t nth : {1, 2}) {
        fake_os::reset();
        fake_os::fail(call::allocate, nth, ENOMEM);
        EXPECT_EQ(string_builder_create(16), nullptr);
        EXPECT_EQ(fake_os::blocks_in_use(), 0);
    }
    fake_os::reset();
    string_builder* builder = string_builder_create(4);
    string_builder_add_str(builder, "abc");
    fake_os::fail(call::allocate, 1, ENOMEM);
    EXPECT_EQ(string_builder_add_str(builder, "d"), -1);
    EXPECT_EQ(string_builder_data(builder), nullptr);
    EXPECT_EQ(string_builder_add_str(builder, "later"), 0);
    EXPECT_STREQ(string_builder_data(builder), "later");
    EXPECT_EQ(string_builder_add_data(builder, "x", -1), -1);
    EXPECT_EQ(string_builder_add_data(builder, "x", INT32_MAX), -1); // no capacity holds it
    EXPECT_STREQ(string_builder_data(builder), "later");
    EXPECT_EQ(string_builder_used(builder), 5);
    string_builder_destroy(builder);
    EXPECT_EQ(fake_os::blocks_in_use(), 0);
}

TEST(Text, ErrorDescriptionsAreTrimmed)
{
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"UNKNOWN error", nullptr, "42"},
        {"unknown", "unknown", "42"},
        {"QEL_ERR_NO_MEM", "QEL_ERR_", "NO_MEM"},
        {"QEL_ERR_NO_MEM", "NO_", "QEL_ERR_NO_MEM"},
        {"QEL_ERR", "", "QEL_ERR"},
        {"unk", "unknown", "unk"},
        {nullptr, "x", ""}};
    for (const auto& [descr, prefix, text] : cases) {
        char out[32];
        EXPECT_EQ(trim_err_descr(42, descr, prefix, out, sizeof(out)), strlen(text));
        EXPECT_STREQ(out, text);
    }
    char small[4];
    EXPECT_EQ(trim_err_descr(0, "abcdef", "", small, sizeof(small)), 6);
    EXPECT_STREQ(small, "abc");
    EXPECT_EQ(trim_err_descr(0, "abcdef", "", small, -1), 6);
}

TEST(Text, CaseConversionIsAsciiOnly)
{
    char text[] = "az[AZ{\xe9 9";
    EXPECT_STREQ(str_toupper(text), "AZ[AZ{\xe9 9");
    EXPECT_STREQ(str_tolower(text), "az[az{\xe9 9");
    EXPECT_EQ(str_toupper(nullptr), nullptr);
}

TEST(Text, FixedFieldsAreCutAndTerminated)
{
    char field[4] = {'#', '#', '#', '#'};
    ostrum::copy_text(field, sizeof(field), "abcd");
    EXPECT_STREQ(field, "abc");
    ostrum::copy_text(field, sizeof(field), field + 1);
    EXPECT_STREQ(field, "bc");
    ostrum::copy_text(field, sizeof(field), nullptr);
    EXPECT_STREQ(field, "");
    ostrum::copy_text(field, 0, "x");
    EXPECT_STREQ(field, "");
}

} // namespace
