// Built twice: with the reference platform, and without one, where everything has its fallback.
#include "host_access/bindings.h"
#include "host_access/correlation.h"
#include "host_access/error_buffer.h"
#include "host_access/flist.h"
#include "host_access/object_xoid.h"
#include "host_access/opcode_list.h"
#include "host_access/opcode_names.h"
#include "host_access/record_count.h"
#include "support/fake_os_fixture.h"
#include "support/texts.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include <gmock/gmock.h>

extern "C" __attribute__((weak)) qel_xoid_t* qel_xoid_create(int64_t db, const char* type, int64_t id);

namespace {

using fake_os::call;
using fake_os::captured_stderr;
using testing::HasSubstr;

const bool with_platform = qel_flist_create != nullptr;

// A list that no substitute looks into.
qel_flist_t* some_list()
{
    static int address = 0;
    return reinterpret_cast<qel_flist_t*>(&address);
}

class HostAccess : public fake_os_fixture {
protected:
    ~HostAccess() override { ostrum::bound_host_services() = {}; }
    ostrum::host_bindings& bound_ = ostrum::bound_host_services();
};

using list_owner = std::unique_ptr<qel_flist_t, void (*)(qel_flist_t*)>;

list_owner new_list()
{
    qel_errbuf_t eb{};
    return {p_flist_create(&eb), flist_destroy};
}

TEST_F(HostAccess, BindsTheHostsServicesInOrder)
{
    ostrum::set_debug_bits(ostrum::debug_general | ostrum::debug_fine);
    EXPECT_EQ(captured_stderr(ostrum::bind_host_services), "");
    ostrum::set_debug_bits(ostrum::debug_detail);
    bound_ = {};
    const std::string said = captured_stderr(ostrum::bind_host_services);
    size_t at = 0;
    for (const char* name :
         {"tbx_opcode_to_opname", "tbx_opname_to_opcode", "qel_flist_to_str_masked", "qel_flist_elem_count",
          "qel_flist_elem_add", "qeli_flist_get", "qeli_flist_set", "qeli_flist_put", "qel_errbuf_sprint",
          "qellog_get_correlation", "qel_flist_copy", "qel_flist_destroy", "qel_flist_create"}) {
        const std::string start = " : initialize_function_pointers : " + std::string(name) + "=";
        at = said.find(start + (with_platform ? "0x" : "(nil)\n"), at);
        ASSERT_NE(at, std::string::npos) << name << " in\n" << said;
    }
    EXPECT_EQ(count_of(said, "\n"), 13);
    EXPECT_EQ(memcmp(&bound_, &ostrum::own_host_services(), sizeof bound_), 0);
}

TEST_F(HostAccess, ASubstituteComesBeforeTheHost)
{
    bound_.get_correlation = [] { return "h:1:substitute:2"; };
    EXPECT_STREQ(perf_get_correlation_id(), "h:1:substitute:2");
    bound_.get_correlation = []() -> const char* { return nullptr; };
    EXPECT_STREQ(perf_get_correlation_id(), "");
    bound_.get_correlation = nullptr;
    EXPECT_EQ(strchr(perf_get_correlation_id(), ':') != nullptr, with_platform);
}

TEST_F(HostAccess, OperationNames)
{
    const struct {
        int32_t opcode;
        const char *fallback, *name, *without_platform;
    } cases[] = {{-1, "f", "VRT_OP_OVERHEAD", nullptr},
                 {-2, nullptr, "VRT_OP_ELAPSED", nullptr},
                 {-3, nullptr, "unknown_operation", nullptr},
                 {-3, "", "unknown_operation", nullptr},
                 {-3, "f", "f", nullptr},
                 {-4, nullptr, "VRT_OP_CONTEXT_OPEN", nullptr},
                 {-5, nullptr, "VRT_OP_CONTEXT_CLOSE", nullptr},
                 {-6, nullptr, "VRT_OP_TRANSACTION", nullptr},
                 {0, "f", "f", nullptr},
                 {3, "f", "op_read", "f"},
                 {9999, "f", "f", nullptr},
                 {9999, nullptr, "unknown", "unknown_operation"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.opcode);
        const bool differs = !with_platform && c.without_platform != nullptr;
        EXPECT_STREQ(get_opname(c.opcode, c.fallback), differs ? c.without_platform : c.name);
    }
    bound_.opcode_to_opname = [](int32_t) -> const char* { return nullptr; };
    EXPECT_STREQ(get_opname(3, ""), "unknown_operation");
}

TEST_F(HostAccess, OperationNumbers)
{
    const std::pair<const char*, int32_t> cases[] = {{nullptr, 0}, {"", 0},           {"7", 7},
                                                     {" 12x", 12}, {"-4", -4},        {"010", 10},
                                                     {"0", 0},     {"4294967297", 0}, {"*", 0}};
    for (const auto& [text, number] : cases) {
        EXPECT_EQ(get_opnum(text), number) << (text != nullptr ? text : "(null)");
    }
    EXPECT_EQ(get_opnum("op_search"), with_platform ? 7 : 0);
}

int32_t elements_to_count = 0;

TEST_F(HostAccess, RecordCounts)
{
    const auto count = [](int32_t opcode) { return count_flist(opcode, some_list(), nullptr); };
    bound_.flist_elem_count = [](qel_flist_t*, uint32_t field, qel_errbuf_t* eb) {
        EXPECT_EQ(field, 0x9000033U);
        EXPECT_EQ(eb->errnum, 0U);
        return elements_to_count;
    };
    for (int32_t opcode = -2; opcode <= 40; ++opcode) {
        SCOPED_TRACE(opcode);
        const bool counted =
            (opcode >= 25 && opcode <= 28) || opcode == 7 || opcode == 17 || opcode == 18 || opcode == 31;
        const int32_t by_default = (opcode >= 1 && opcode <= 8) || (opcode >= 17 && opcode <= 19) ? 1 : 0;
        elements_to_count = 6;
        EXPECT_EQ(count(opcode), counted ? 6 : by_default);
        EXPECT_EQ(count_flist(opcode, nullptr, nullptr), by_default);
        elements_to_count = 0;
        EXPECT_EQ(count(opcode), opcode == 31 ? 1 : counted ? 0 : by_default);
        qel_errbuf_t eb{};
        EXPECT_EQ(count_flist(opcode, nullptr, &eb), by_default);
        eb.errnum = 37;
        EXPECT_EQ(count_flist(opcode, some_list(), &eb), 0);
    }
    bound_.flist_elem_count = nullptr;
    if (!with_platform) {
        EXPECT_EQ(count(7), 1); // nobody counts
        EXPECT_EQ(count(31), 0);
    }
}

int32_t stored_id = 0;

TEST_F(HostAccess, StoringTakesElementIdsAsSigned16Bit)
{
    bound_.flist_set = [](qel_flist_t*, uint32_t, int32_t id, const void*, qel_errbuf_t*) { stored_id = id; };
    bound_.flist_put = [](qel_flist_t*, uint32_t, int32_t id, void*, qel_errbuf_t*) { stored_id = id; };
    bound_.flist_elem_add = [](qel_flist_t* list, uint32_t, int32_t id, qel_errbuf_t*) {
        stored_id = id;
        return list;
    };
    for (const auto& [given, passed] : {std::pair{32767, 32767}, {32768, -32768}, {65536, 0}, {-1, -1}}) {
        p_flist_fld_set(some_list(), 0, given, "", nullptr);
        EXPECT_EQ(std::exchange(stored_id, 5), passed);
        p_flist_fld_put(some_list(), 0, given, nullptr, nullptr);
        EXPECT_EQ(stored_id, passed);
        p_flist_elem_add(some_list(), 0, given, nullptr);
        EXPECT_EQ(stored_id, given);
    }
}

std::string printed(qel_flist_t* list)
{
    FILE* stream = tmpfile();
    print_flist(stream, list);
    std::string text(static_cast<size_t>(lseek(fileno(stream), 0, SEEK_END)), '\0'); // it was flushed
    rewind(stream);
    EXPECT_EQ(fread(text.data(), 1, text.size(), stream), text.size());
    fclose(stream);
    return text;
}

TEST_F(HostAccess, Lists)
{
    const list_owner list = new_list();
    ASSERT_EQ(list != nullptr, with_platform);
    EXPECT_EQ(printed(nullptr), "NULL flist ptr\n");
    print_flist(nullptr, list.get());
    flist_destroy(nullptr);
    EXPECT_EQ(flist_copy(nullptr), nullptr);
    if (!with_platform) {
        EXPECT_EQ(printed(some_list()), "NULL flist ptr\n");
        EXPECT_EQ(flist_copy(some_list()), nullptr);
        return;
    }
    qel_errbuf_t eb{};
    const uint32_t field = 0x5000045;
    p_flist_fld_set(list.get(), field, 0, "first", &eb);
    const list_owner copy(flist_copy(list.get()), flist_destroy);
    p_flist_fld_set(list.get(), field, 0, "second", &eb);
    EXPECT_STREQ(static_cast<char*>(p_flist_fld_get(copy.get(), field, 0, 0, &eb)), "first");
    EXPECT_EQ(p_flist_elem_count(list.get(), 0x9000033, &eb), 0);
    EXPECT_EQ(eb.errnum, 0U);
    EXPECT_THAT(printed(list.get()), HasSubstr("\"second\"\n"));
}

TEST_F(HostAccess, AListThatCannotBeConvertedIsReported)
{
    bound_.flist_to_str_masked = [](qel_flist_t*, char**, int32_t*, qel_errbuf_t* eb) { eb->errnum = 6; };
    std::string text;
    const std::string said = captured_stderr([&] { text = printed(some_list()); });
    EXPECT_EQ(text, "NULL flist ptr\n");
    EXPECT_EQ(count_of(said, " : flist_to_str : failed converting flist - ecode[6]\n"), 1) << said;
}

std::string host_error_text;
int32_t host_status = 0;

TEST_F(HostAccess, ErrorBufferTexts)
{
    bound_.errbuf_sprint = [](qel_errbuf_t*, char** text, int32_t*, int32_t flags, int32_t* status) {
        EXPECT_EQ(flags, 0);
        *text = strdup(host_error_text.c_str());
        *status = host_status;
    };
    char out[1025];
    memset(out, '#', sizeof(out));
    qel_errbuf_t eb{};
    EXPECT_STREQ(get_ebuf_str(nullptr, out), "NO_EBUF_PTR");
    EXPECT_STREQ(get_ebuf_str(&eb, nullptr), "NO_ERROR");
    eb.errnum = 2;
    host_error_text = std::string(2000, 'x');
    EXPECT_EQ(get_ebuf_str(&eb, out), out);
    EXPECT_EQ(std::string(out), std::string(1023, 'x'));
    EXPECT_EQ(out[1024], '#');
    host_status = 6;
    EXPECT_STREQ(get_ebuf_str(&eb, out), "ERROR_CONVERTING_EBUF_TO_STR");
    bound_ = {};
    EXPECT_EQ(std::string(get_ebuf_str(&eb, out)).substr(0, 8), with_platform ? "error 2 " : "ERROR_CO");
    int32_t status = 5;
    errbuf_sprint(nullptr, nullptr, nullptr, 0, &status);
    EXPECT_EQ(status, 0);
}

constexpr int64_t no_object = INT64_MIN;

list_owner object_list(int64_t id, const char* search, const char* template_text, const char* subject)
{
    qel_errbuf_t eb{};
    list_owner list = new_list();
    if (id != no_object) {
        p_flist_fld_put(list.get(), 0x7000010, 0, qel_xoid_create(0x1000000000002, "/package", id), &eb);
    }
    for (const auto& [field, text] :
         {std::pair{0x5000044U, search}, {0x5000045U, template_text}, {0x50023FBU, subject}}) {
        if (text != nullptr) {
            p_flist_fld_set(list.get(), field, 0, text, &eb);
        }
    }
    return list;
}

TEST_F(HostAccess, ObjectsAreDescribedByKindOfOperation)
{
    char empty[8] = "before";
    int64_t none = 7;
    EXPECT_EQ(__ostrum_get_object_xoid(7, nullptr, &none, empty, sizeof(empty)) + ostrum_get_db_num(nullptr),
              0);
    EXPECT_EQ(std::to_string(none) + empty, "0");
    if (!with_platform) {
        GTEST_SKIP() << "there are no lists";
    }
    const char* search = "select X from /package/name/$1 where F1.V1 = V1";
    const struct {
        int32_t opcode;
        int64_t id;
        const char *search, *template_text;
        int32_t room;
        const char* text;
    } cases[] = {{3, 42, search, "lib*", 128, "/package"},
                 {49, -7, nullptr, nullptr, 128, "/package"},
                 {100, 42, nullptr, nullptr, 128, "/package"},
                 {-4, 42, nullptr, nullptr, 128, "/package"},
                 {3, 42, nullptr, nullptr, 5, "/pac"},
                 {3, no_object, search, "lib*", 128, ""},
                 {7, 1, search, nullptr, 128, "/search[1]"},
                 {7, 5, search, "x", 128, "/search[5]/x"},
                 {7, 5, nullptr, "x", 12, "/search[5]/"},
                 {7, 5, nullptr, "x", 6, "/sear"},
                 {17, 0, search, nullptr, 128, "/package/name/$1"},
                 {17, -1, search, "lib*", 128, "/package/name/lib*"},
                 {25, 0, search, "lib*", 17, "/package/name/li"},
                 {25, 0, search, "lib*", 9, "/package"},
                 {7, 0, "from /first", "x", 128, ""},
                 {7, 0, "a from /b", "x", 128, "/b"},
                 {7, 0, nullptr, "x", 128, ""},
                 {7, no_object, search, "x", 128, ""},
                 {31, 42, search, "x", 128, "subject"},
                 {31, no_object, search, "x", 4, "sub"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.opcode) + " " + c.text);
        const list_owner list = object_list(c.id, c.search, c.template_text, "subject");
        const int64_t id = c.id != no_object ? c.id : 0;
        std::string text(200, '#');
        int64_t db = -1;
        EXPECT_EQ(__ostrum_get_object_xoid(c.opcode, list.get(), &db, text.data(), c.room), id);
        EXPECT_EQ(db, c.id != no_object ? 0x1000000000002 : 0);
        EXPECT_EQ(ostrum_get_db_num(list.get()), db);
        EXPECT_STREQ(text.c_str(), c.text);
        EXPECT_EQ(text.find_first_not_of('#', static_cast<size_t>(c.room)), std::string::npos);
        EXPECT_EQ(__ostrum_get_object_xoid(c.opcode, list.get(), nullptr, nullptr, 128), id);
    }
}

TEST_F(HostAccess, DatabaseNumbers)
{
    char text[32];
    const std::pair<int64_t, const char*> cases[] = {{0, "0.0.0.0"},
                                                     {0x0001000000000000, "1.0.0.0"},
                                                     {0x0001000000000001, "1.0.0.1"},
                                                     {0x000100000000FFFF, "1.0.0.-1"},
                                                     {0x7FFF80007FFF8000, "32767.-32768.32767.-32768"}};
    for (const auto& [db, expected] : cases) {
        EXPECT_STREQ(perf_dbno_to_str(text, sizeof(text), db), expected);
    }
    EXPECT_STREQ(perf_dbno_to_str(text, 4, 0x0001000000000001), "1.0");
}

struct normalized_list {
    int32_t outcome;
    std::string text;
    std::string said;
};

normalized_list normalize(const std::string& list, int32_t room = 2048)
{
    normalized_list result{};
    std::string out(2048, '#');
    result.said = captured_stderr([&] { result.outcome = normalize_oplist(out.data(), room, list.c_str()); });
    result.text = out.c_str();
    return result;
}

TEST_F(HostAccess, OpcodeListsAreBroughtIntoNormalForm)
{
    bound_.opname_to_opcode = [](const char* name) { return strcmp(name, "op_search") == 0 ? 7 : 0; };
    const std::string longest(251, '0');
    const struct {
        std::string list;
        const char* text;
        std::string message; // for one that is refused
    } cases[] = {
        {"7", "7", ""},
        {" 3 , op_search,\t012 ", "3,7,12", ""},
        {"5,5", "5,5", ""},
        {"", "", ""},
        {"  ", "", ""},
        {longest + "1234", "1234", ""},
        {" " + longest + "1234 ", "1234", ""},
        {"3,op_other", "", "opcode[op_other] not recognized\n"},
        {"3,0", "", "opcode[0] not recognized\n"},
        {"-4", "", "opcode[-4] not recognized\n"},
        {"3,,4", "", "opcode[] not recognized\n"},
        {"3," + longest + "12345,4", "",
         "opcode[" + longest + "12345] is too long - truncated to[" + longest + "1234]\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.list);
        const normalized_list result = normalize(c.list);
        EXPECT_EQ(result.outcome, c.message.empty() ? 0 : -2);
        EXPECT_EQ(result.text, c.text);
        EXPECT_THAT(result.said, HasSubstr(c.message.empty() ? "" : " : normalize_oplist : " + c.message));
        EXPECT_EQ(result.said.empty(), c.message.empty());
    }
}

TEST_F(HostAccess, OpcodeListsAreCutToTheirRoom)
{
    EXPECT_EQ(normalize("10,11", 6).said, "");
    const normalized_list cut = normalize("10,11", 5);
    EXPECT_EQ(cut.outcome, 0);
    EXPECT_EQ(cut.text, "10,1");
    EXPECT_THAT(
        cut.said,
        HasSubstr("normalize_oplist : normalized list[10,11] is 5 chars, but buffer len is only 5\n"));
    EXPECT_EQ(normalize("10", 0).outcome, -1);
    EXPECT_EQ(normalize_oplist(nullptr, 10, "10"), -1);
    for (const int64_t nth : {1, 2}) { // the builder, its content
        fake_os::fail(call::allocate, nth, ENOMEM);
        EXPECT_EQ(normalize("10").outcome, -4);
    }
    EXPECT_EQ(fake_os::blocks_in_use(), 0);
}

std::string traced(const char* text)
{
    const ostrum::trace_opcode_list list = ostrum::build_opcode_trace_list(text);
    std::string numbers;
    for (int32_t i = 0; i < list.count; ++i) {
        numbers += std::to_string(list.opcodes.get()[i]) + " ";
    }
    EXPECT_EQ(list.opcodes == nullptr, list.count == 0);
    return numbers;
}

TEST_F(HostAccess, TraceListsLeaveOutMalformedElements)
{
    const std::pair<const char*, const char*> cases[] = {{nullptr, ""},
                                                         {"", ""},
                                                         {"7", "7 "},
                                                         {"7,3,12", "7 3 12 "},
                                                         {" 7, 3", "7 3 "},
                                                         {"7 ,3", "3 "},
                                                         {"7,", "7 "},
                                                         {",7", "7 "},
                                                         {"7,,3", "7 3 "},
                                                         {"7,x,3", "7 3 "},
                                                         {"7,3x", "7 "},
                                                         {"7,3 ", "7 "},
                                                         {"op_read", ""},
                                                         {"-4,010", "-4 10 "},
                                                         {"99999999999999999999,5", "5 "}};
    for (const auto& [text, expected] : cases) {
        SCOPED_TRACE(text != nullptr ? text : "(null)");
        EXPECT_EQ(traced(text), expected);
    }
    EXPECT_EQ(fake_os::blocks_in_use(), 0);
}

TEST_F(HostAccess, TraceListsGrowOrAreGivenUpWhole)
{
    std::string text;
    std::string expected;
    for (int i = 1; i <= 65; ++i) {
        text += std::to_string(i) + (i < 65 ? "," : "");
        expected += std::to_string(i) + " ";
    }
    EXPECT_EQ(traced(text.c_str()), expected);
    EXPECT_EQ(fake_os::calls_made(call::allocate), 3);
    fake_os::fail(call::allocate, 2, ENOMEM);
    EXPECT_THAT(captured_stderr([&] { EXPECT_EQ(traced(text.c_str()), ""); }),
                HasSubstr(" : build_opcode_trace_list : out of memory\n"));
    EXPECT_EQ(fake_os::blocks_in_use(), 0);

    ostrum::set_debug_bits(ostrum::debug_general);
    EXPECT_THAT(captured_stderr([] { traced("5,6"); }),
                testing::AllOf(HasSubstr(" : build_opcode_trace_list: found 2 opcodes:\n"),
                               HasSubstr(" :    opcode[1] => 6\n")));
}

} // namespace
