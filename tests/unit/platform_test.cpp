#include "qel_platform.h"
#include "support/working_dir.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

constexpr uint32_t int_field = QEL_FLD(QEL_TYPE_INT, 1U);
constexpr uint32_t text_field = QEL_FLD(QEL_TYPE_STR, 2U);
constexpr uint32_t object_field = QEL_FLD(QEL_TYPE_XOID, 3U);
constexpr uint32_t time_field = QEL_FLD(QEL_TYPE_TSTAMP, 4U);
constexpr uint32_t array_field = QEL_FLD(QEL_TYPE_ARRAY, 5U);
constexpr uint32_t list_field = QEL_FLD(QEL_TYPE_SUBLIST, 6U);
constexpr uint32_t strange_field = QEL_FLD(99U, 8U);

using list_owner = std::unique_ptr<qel_flist_t, void (*)(qel_flist_t*)>;

list_owner owned(qel_flist_t* list)
{
    return {list, [](qel_flist_t* owned_list) { qel_flist_destroy(owned_list, nullptr); }};
}

list_owner new_list()
{
    return owned(qel_flist_create(nullptr));
}

// A text of the platform, released; "(null)" for none.
std::string taken(char* text)
{
    std::string copy = text != nullptr ? text : "(null)";
    qel_free(text);
    return copy;
}

std::string text_of(qel_flist_t* list)
{
    char* text = nullptr;
    int32_t length = 0;
    qel_errbuf_t eb{};
    qel_flist_to_str_masked(list, &text, &length, &eb);
    EXPECT_EQ(eb.errnum, 0U);
    std::string copy = taken(text);
    EXPECT_EQ(static_cast<size_t>(length), copy.size());
    return copy;
}

void set_text(qel_flist_t* list, uint32_t field, const char* text)
{
    qeli_flist_set(list, field, 0, text, nullptr);
}

template <typename T>
T* get(qel_flist_t* list, uint32_t field, int32_t elem_id = 0)
{
    return static_cast<T*>(qeli_flist_get(list, field, elem_id, 1, nullptr));
}

// What the configuration says: the value as text, or the error number.
std::string configured(const char* program, const char* key, int32_t type)
{
    void* value = nullptr;
    int32_t error = -1;
    qel_conf(program, key, type, &value, &error);
    EXPECT_EQ(value == nullptr, error != 0);
    if (error != 0) {
        return "error " + std::to_string(error);
    }
    std::string text =
        type == QEL_TYPE_INT ? std::to_string(*static_cast<int32_t*>(value)) : static_cast<char*>(value);
    qel_free(value);
    return text;
}

TEST(PlatformConf, ReadsSectionsKeysAndValues)
{
    const working_dir dir;
    dir.write("qel.conf", "stray = 1\n"
                          "[ostrum]\n"
                          "  # text = commented out\n"
                          "text =  two words # and more \r\n"
                          "quoted=\"  kept  \"\nempty =\nequation = a=b\n"
                          "hex = 0x1F\noctal = 010\nnegative = -2147483648\n"
                          "large = 2147483648\nhalf = 12abc\ntwice = 1\ntwice = 2\n"
                          "[ other ]\n"
                          "text = another");
    const struct {
        const char *program, *key;
        int32_t type;
        const char* expected;
    } cases[] = {
        {"ostrum", "text", QEL_TYPE_STR, "two words # and more"},
        {"ostrum", "quoted", QEL_TYPE_STR, "  kept  "},
        {"ostrum", "equation", QEL_TYPE_STR, "a=b"},
        {"ostrum", "hex", QEL_TYPE_INT, "31"},
        {"ostrum", "hex", QEL_TYPE_STR, "0x1F"},
        {"ostrum", "octal", QEL_TYPE_INT, "8"},
        {"ostrum", "negative", QEL_TYPE_INT, "-2147483648"},
        {"ostrum", "twice", QEL_TYPE_INT, "1"},
        {"other", "text", QEL_TYPE_STR, "another"},
        {"ostrum", "large", QEL_TYPE_INT, "error 6"},
        {"ostrum", "half", QEL_TYPE_INT, "error 6"},
        {"ostrum", "empty", QEL_TYPE_INT, "error 6"},
        {"ostrum", "stray", QEL_TYPE_STR, "error 2"},
        {"ostrum", "TEXT", QEL_TYPE_STR, "error 2"},
        {"other", "hex", QEL_TYPE_STR, "error 2"},
        {"ostrum", "text", QEL_TYPE_XOID, "error 3"},
        {"ostrum", nullptr, QEL_TYPE_STR, "error 4"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.program) + ":" + (c.key != nullptr ? c.key : "(null)"));
        EXPECT_EQ(configured(c.program, c.key, c.type), c.expected);
    }
}

TEST(PlatformConf, TheFirstFilePresentIsTheOneThatIsRead)
{
    const working_dir dir;
    std::filesystem::create_directories(dir.file("home/config"));
    dir.write("home/config/qel.conf", "[p]\nhome = 1\n");
    setenv("QEL_HOME", dir.file("home").c_str(), 1);
    std::filesystem::create_directory(dir.file("qel.conf"));
    EXPECT_EQ(configured("p", "home", QEL_TYPE_INT), "1"); // past a directory of the name
    std::filesystem::remove(dir.file("qel.conf"));
    dir.write("qel.conf", "[p]\n");
    EXPECT_EQ(configured("p", "home", QEL_TYPE_INT), "error 2");
    unsetenv("QEL_HOME");
}

TEST(PlatformFlist, StoresAndFindsEachType)
{
    const list_owner list = new_list();
    const int32_t number = -7;
    const int64_t seconds = 1'763'212'641;
    qeli_flist_set(list.get(), int_field, 5, &number, nullptr); // element ids count for arrays only
    qeli_flist_set(list.get(), time_field, 0, &seconds, nullptr);
    set_text(list.get(), text_field, "short");
    qeli_flist_put(list.get(), object_field, 0, qel_xoid_create(1, "/package", 42), nullptr);
    qel_flist_t* below = qel_flist_create(nullptr);
    qeli_flist_put(list.get(), list_field, 0, below, nullptr);

    EXPECT_EQ(*get<int32_t>(list.get(), int_field), number);
    EXPECT_EQ(*get<int64_t>(list.get(), time_field), seconds);
    EXPECT_EQ(qel_xoid_get_id(get<qel_xoid_t>(list.get(), object_field)), 42);
    EXPECT_EQ(get<qel_flist_t>(list.get(), list_field), below); // put: the list itself

    const char* borrowed = get<char>(list.get(), text_field);
    for (uint32_t i = 100; i < 200; ++i) {
        set_text(list.get(), QEL_FLD(QEL_TYPE_STR, i), "other");
    }
    EXPECT_STREQ(borrowed, "short"); // still valid
    qeli_flist_put(list.get(), text_field, 0, strdup("replaced"), nullptr);
    EXPECT_STREQ(get<char>(list.get(), text_field), "replaced");
}

TEST(PlatformFlist, ArraysKeepTheirElementsById)
{
    const list_owner list = new_list();
    EXPECT_EQ(qel_flist_elem_count(list.get(), array_field, nullptr), 0);
    EXPECT_EQ(get<qel_flist_t>(list.get(), array_field, QEL_ELEM_ANY), nullptr);
    qel_flist_t* nine = qel_flist_elem_add(list.get(), array_field, 9, nullptr);
    qel_flist_t* three = qel_flist_elem_add(list.get(), array_field, 3, nullptr);
    EXPECT_EQ(qel_flist_elem_add(list.get(), array_field, 9, nullptr), nine);
    EXPECT_EQ(qel_flist_elem_count(list.get(), array_field, nullptr), 2);
    EXPECT_EQ(get<qel_flist_t>(list.get(), array_field, 9), nine);
    EXPECT_EQ(get<qel_flist_t>(list.get(), array_field, QEL_ELEM_ANY), three);

    set_text(nine, text_field, "before");
    const list_owner copy = owned(qel_flist_copy(list.get(), nullptr));
    set_text(nine, text_field, "after");
    EXPECT_STREQ(get<char>(get<qel_flist_t>(copy.get(), array_field, 9), text_field), "before");
}

TEST(PlatformFlist, SaysWhatIsWrong)
{
    const list_owner list = new_list();
    qel_flist_t* fl = list.get();
    const struct {
        const char* what;
        std::function<void(qel_errbuf_t*)> call;
        uint32_t errnum;
    } cases[] = {
        {"missing", [fl](auto* e) { qeli_flist_get(fl, text_field, 0, 0, e); }, QEL_ERR_NOT_FOUND},
        {"missing but optional", [fl](auto* e) { qeli_flist_get(fl, text_field, 0, 1, e); }, 0},
        {"no list", [](auto* e) { qeli_flist_get(nullptr, text_field, 0, 1, e); }, QEL_ERR_BAD_ARG},
        {"no value", [fl](auto* e) { qeli_flist_set(fl, text_field, 0, nullptr, e); }, QEL_ERR_BAD_ARG},
        {"no such type", [fl](auto* e) { qeli_flist_set(fl, strange_field, 0, "x", e); }, QEL_ERR_BAD_TYPE},
        {"put nowhere", [](auto* e) { qeli_flist_put(nullptr, text_field, 0, strdup("x"), e); },
         QEL_ERR_BAD_ARG},
        {"a list into itself", [fl](auto* e) { qeli_flist_put(fl, list_field, 0, fl, e); }, QEL_ERR_BAD_ARG},
        {"element of no array", [fl](auto* e) { qel_flist_elem_add(fl, list_field, 0, e); },
         QEL_ERR_BAD_TYPE},
        {"no id", [fl](auto* e) { qel_flist_elem_add(fl, array_field, QEL_ELEM_ANY, e); }, QEL_ERR_BAD_ARG},
        {"copy of nothing", [](auto* e) { qel_flist_copy(nullptr, e); }, QEL_ERR_BAD_ARG},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        qel_errbuf_t eb{};
        c.call(&eb);
        EXPECT_EQ(eb.errnum, c.errnum);
        EXPECT_EQ(eb.location, c.errnum != 0 ? QEL_LOC_FLIST : QEL_LOC_NONE);
    }
    EXPECT_EQ(text_of(fl), ""); // nothing was stored
}

TEST(PlatformFlistText, ALineAFieldNestedAndMasked)
{
    const list_owner list = new_list();
    const int32_t number = 5;
    const int64_t seconds = 60;
    set_text(list.get(), text_field, "a \"b\"\n\\\x01");
    qeli_flist_set(list.get(), int_field, 0, &number, nullptr);
    qeli_flist_set(list.get(), time_field, 0, &seconds, nullptr);
    qeli_flist_put(list.get(), object_field, 0, qel_xoid_create(0x100000000ffff, "/t", -1), nullptr);
    set_text(qel_flist_elem_add(list.get(), array_field, 2, nullptr), text_field, "in it");
    EXPECT_EQ(text_of(list.get()), "0x1000001 INT      [0] 5\n"
                                   "0x5000002 STR      [0] \"a \\\"b\\\"\\n\\\\\\x01\"\n"
                                   "0x7000003 XOID     [0] 1.0.0.-1 /t -1\n"
                                   "0x8000004 TSTAMP   [0] (60)\n"
                                   "0x9000005 ARRAY    [2]\n"
                                   "    0x5000002 STR      [0] \"in it\"\n");

    const uint32_t sensitive[] = {array_field, text_field};
    qel_mask_fields(sensitive, 2);
    EXPECT_EQ(text_of(list.get()), "0x1000001 INT      [0] 5\n"
                                   "0x5000002 STR      [0] ****\n"
                                   "0x7000003 XOID     [0] 1.0.0.-1 /t -1\n"
                                   "0x8000004 TSTAMP   [0] (60)\n"
                                   "0x9000005 ARRAY    [2] ****\n");
    qel_mask_fields(nullptr, 0);
}

TEST(PlatformFlistText, IntoTheCallersBuffer)
{
    const list_owner list = new_list();
    const int32_t number = 5;
    qeli_flist_set(list.get(), int_field, 0, &number, nullptr);
    const std::string expected = "0x1000001 INT      [0] 5\n";
    for (const size_t capacity : {expected.size(), expected.size() - 1}) {
        std::string buffer(capacity + 1, '#');
        char* text = buffer.data();
        auto length = static_cast<int32_t>(capacity);
        qel_errbuf_t eb{};
        qel_flist_to_str_masked(list.get(), &text, &length, &eb);
        const bool fits = capacity == expected.size();
        EXPECT_EQ(eb.errnum, fits ? QEL_ERR_NONE : QEL_ERR_TOO_SMALL);
        EXPECT_EQ(static_cast<size_t>(length), expected.size());
        EXPECT_EQ(buffer.c_str(), fits ? expected : std::string(capacity + 1, '#'));
    }
}

TEST(PlatformErrorBuffer, OneLineWithNamesOfWhatIsKnown)
{
    std::pair<qel_errbuf_t, const char*> cases[] = {
        {{QEL_LOC_FLIST, QEL_CLASS_SYSTEM, QEL_ERR_NOT_FOUND, text_field, 3, {}},
         "error 2 (not found), class 1 (system), location 1 (flist), field 2 of type 5, element 3"},
        {{77, QEL_CLASS_APPL, 201, 0, 0, {}}, "error 201, class 2 (application), location 77"},
    };
    for (auto& [eb, expected] : cases) {
        char* text = nullptr;
        int32_t length = 0;
        int32_t status = -1;
        qel_errbuf_sprint(&eb, &text, &length, 0, &status);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(taken(text), expected);
    }
}

TEST(PlatformDecimal, RoundsByEveryMode)
{
    const struct {
        double number;
        int32_t places;
        const char* by_mode[6]; // up, down, ceiling, floor, nearest, even
    } cases[] = {
        {2.675, 2, {"2.68", "2.67", "2.68", "2.67", "2.68", "2.68"}},
        {-2.665, 2, {"-2.67", "-2.66", "-2.66", "-2.67", "-2.67", "-2.66"}},
        {0.125, 2, {"0.13", "0.12", "0.13", "0.12", "0.13", "0.12"}},
        {0.12500001, 2, {"0.13", "0.12", "0.13", "0.12", "0.13", "0.13"}},
        {99.96, 1, {"100.0", "99.9", "100.0", "99.9", "100.0", "100.0"}},
        {-0.004, 2, {"-0.01", "0.00", "0.00", "-0.01", "0.00", "0.00"}},
        {0.5, 0, {"1", "0", "1", "0", "1", "0"}},
        {1e-12,
         9,
         {"0.000000001", "0.000000000", "0.000000001", "0.000000000", "0.000000000", "0.000000000"}},
    };
    for (const auto& c : cases) {
        for (int32_t mode = NMU_ROUND_UP; mode <= NMU_ROUND_EVEN; ++mode) {
            SCOPED_TRACE(std::to_string(c.number) + " mode " + std::to_string(mode));
            qel_errbuf_t eb{};
            nmu_decimal_t* d = nmu_decimal_from_double(c.number, &eb);
            nmu_decimal_round_assign(d, c.places, mode, &eb);
            EXPECT_EQ(eb.errnum, 0U);
            EXPECT_EQ(taken(nmu_decimal_to_str(d)), c.by_mode[mode - NMU_ROUND_UP]);
            nmu_decimal_destroy(d);
        }
    }
}

TEST(PlatformDecimal, TakesTheLimitsAndRefusesTheRest)
{
    nmu_decimal_t* exact = nmu_decimal_from_double(1763212641.123456, nullptr);
    EXPECT_EQ(taken(nmu_decimal_to_str(exact)), "1763212641.123456");
    nmu_decimal_destroy(exact);
    for (const double number : {1.7976931348623157e308, -5e-324, 0.1}) {
        nmu_decimal_t* d = nmu_decimal_from_double(number, nullptr);
        EXPECT_EQ(nmu_decimal_to_double(d), number);
        qel_errbuf_t eb{};
        nmu_decimal_round_assign(d, -1, NMU_ROUND_UP, &eb);
        EXPECT_EQ(eb.errnum, QEL_ERR_BAD_ARG);
        nmu_decimal_destroy(d);
    }
    for (const double number : {HUGE_VAL, -HUGE_VAL, std::nan("")}) {
        qel_errbuf_t eb{};
        EXPECT_EQ(nmu_decimal_from_double(number, &eb), nullptr);
        EXPECT_EQ(eb.errnum, QEL_ERR_BAD_VALUE);
    }
}

TEST(PlatformOpcodes, NamesGoBothWaysAndConfigurationComesFirst)
{
    const working_dir dir;
    dir.write("qel.conf", "[opcodes]\n100 = op_reindex\n7 = op_find\nx = op_x\n-5 = op_minus\n101 =\n");
    const char* kept = tbx_opcode_to_opname(3);
    ASSERT_EQ(qel_platform_init(), 0);
    EXPECT_STREQ(kept, "op_read");
    for (const auto& [opcode, name] :
         {std::pair(1, "op_create"), {5, "op_write"}, {7, "op_find"}, {100, "op_reindex"}}) {
        EXPECT_STREQ(tbx_opcode_to_opname(opcode), name);
        EXPECT_EQ(tbx_opname_to_opcode(name), opcode);
    }
    for (const char* name : {"", "*", "op_search", "op_x", "op_minus", "unknown"}) {
        EXPECT_EQ(tbx_opname_to_opcode(name), 0) << name;
    }
    for (const int32_t opcode : {0, -5, 32, 39, 43, 101}) {
        EXPECT_EQ(strncmp(tbx_opcode_to_opname(opcode), "unknown", 7), 0) << opcode;
    }
    std::set<std::string> names;
    for (int32_t opcode = 1; opcode <= 49; ++opcode) {
        names.insert(tbx_opcode_to_opname(opcode));
    }
    EXPECT_EQ(names.size(), 31U + 3U + 1U + 1U); // 1-31, 40-42, 49, and the unknown one
}

std::string third_field(const std::string& text)
{
    const size_t begin = text.find(':', text.find(':') + 1) + 1;
    return text.substr(begin, text.find(':', begin) - begin);
}

TEST(PlatformCorrelation, NamesTheProgramPerThreadAndProcess)
{
    const std::string own = qellog_get_correlation();
    EXPECT_EQ(std::count(own.begin(), own.end(), ':'), 3) << own;
    EXPECT_EQ(third_field(own), "platform_test");
    EXPECT_NE(own.find(":" + std::to_string(getpid()) + ":"), std::string::npos);

    qellog_set_correlation("h:1:chosen:9");
    std::string other;
    std::thread([&other] { other = qellog_get_correlation(); }).join();
    EXPECT_STREQ(qellog_get_correlation(), "h:1:chosen:9");
    EXPECT_EQ(third_field(other), "platform_test");
    EXPECT_NE(other, own);
    qellog_set_correlation(nullptr);
    EXPECT_EQ(qellog_get_correlation(), own);

    const pid_t child = fork();
    if (child == 0) {
        const std::string mine = ":" + std::to_string(getpid()) + ":";
        _exit(strstr(qellog_get_correlation(), mine.c_str()) != nullptr ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(PlatformText, CopiesAndNumbersStayWithinTheirRoom)
{
    char out[6] = "#####";
    EXPECT_EQ(qel_strlcpy(out, "abcdefg", 4), 7U);
    EXPECT_STREQ(out, "abc");
    EXPECT_EQ(out[4], '#');
    EXPECT_EQ(qel_strlcpy(out, "", 6), 0U);
    EXPECT_STREQ(out, "");
    char number[24];
    EXPECT_STREQ(qel_i64toa(INT64_MIN, number, sizeof(number)), "-9223372036854775808");
    EXPECT_STREQ(qel_i64toa(1234567, out, sizeof(out)), "12345");
}

} // namespace
