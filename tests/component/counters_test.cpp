#include "component/data_file_fixture.h"

namespace {

class counters_test : public data_file_fixture {
protected:
    counters_test() { open(); }
};

struct counter_arguments {
    int32_t opcode = 40;
    const char* opname = "op";
    uint32_t opflags = 1;
    int32_t lineno = 2;
    const char* program = "p";
    const char* fname = "f";
    const char* obj_type = "t";
    int64_t db_number = 3;
};

ostrum::counter_entry* add(rt_info* handle, const counter_arguments& a)
{
    return rt_counter_add(handle, a.opcode, a.opname, a.opflags, a.lineno, a.program, a.fname, a.obj_type,
                          a.db_number, 1, 0, 0, 0, 0, 0);
}

TEST_F(counters_test, EachKeyFieldTellsEntriesApart)
{
    const std::string cut(127, 'x');
    const std::string long_text = cut + "yz";
    const counter_arguments distinct[] = {
        {},
        {.opcode = 41},
        {.opflags = 9},
        {.lineno = -2},
        {.program = ""},
        {.fname = "F"},
        {.obj_type = "tt"},
        {.db_number = -3},
        {.opcode = 0},
        {.opcode = 0, .opname = "other"},
        {.obj_type = long_text.c_str()},
    };
    for (const auto& a : distinct) {
        const uint64_t before = image().counter_count;
        const ostrum::counter_entry* entry = add(handle_, a);
        EXPECT_EQ(image().counter_count, before + 1);
        EXPECT_EQ(add(handle_, a), entry);
        EXPECT_EQ(entry->calls, 2U);
    }
    EXPECT_EQ(add(handle_, {.opname = "not compared"}), &image().counters[0]);
    EXPECT_EQ(add(handle_, {.program = nullptr}), &image().counters[4]);
    EXPECT_EQ(add(handle_, {.obj_type = cut.c_str()}), &image().counters[10]);
    EXPECT_STREQ(image().counters[10].obj_type, cut.c_str());
    EXPECT_EQ(image().counter_count, std::size(distinct));
}

TEST_F(counters_test, AnEmptyNameIsStoredUnderTheTablesAndNotFoundAgainForOpcodeZero)
{
    EXPECT_STREQ(add(handle_, {.opcode = -2, .opname = nullptr})->opname, "VRT_OP_ELAPSED");
    const ostrum::counter_entry* first = add(handle_, {.opcode = 0, .opname = ""});
    EXPECT_STREQ(first->opname, "unknown_operation");
    EXPECT_NE(add(handle_, {.opcode = 0, .opname = ""}), first);
    EXPECT_EQ(image().counter_count, 3U);
}

TEST_F(counters_test, TotalsAreAddedCopiedAndClearedWhileKeysStay)
{
    ostrum::counter_entry* entry = add_counter(5, 1);
    errno = EBADMSG;
    rt_counter_update(entry, 1, 2, 3, 4, 5, 6);
    add_counter(6, 10);
    int32_t count = -1;
    c_block<ostrum::counter_entry> copies(rt_counters_copy(handle_, 1, &count));
    EXPECT_EQ(errno, EBADMSG);
    ASSERT_EQ(count, 2);
    const ostrum::counter_entry& copy = *copies;
    EXPECT_EQ(copy.calls, 2U);
    EXPECT_EQ(copy.errors + 10 * copy.recs + 100 * copy.total_t + 1000 * copy.u_cpu_t + 10000 * copy.s_cpu_t,
              65432U);
    EXPECT_EQ(entry->calls + entry->errors + entry->recs + entry->total_t + entry->u_cpu_t + entry->s_cpu_t,
              0U);
    EXPECT_EQ(add_counter(5, 4), entry);
    rt_counters_reset(handle_);
    EXPECT_EQ(entry->calls + image().counters[1].calls, 0U);

    ostrum::error_entry* error = add_error(3, 4);
    const c_block<ostrum::error_entry> errors(rt_errors_copy(handle_, 1, &count));
    ASSERT_EQ(count, 1);
    EXPECT_EQ(errors->errcnt, 4U);
    EXPECT_EQ(error->errcnt, 0U);
    EXPECT_EQ(add_error(3, 2), error);
    rt_errors_reset(handle_);
    EXPECT_EQ(error->errcnt, 0U);
}

TEST_F(counters_test, FullTablesRefuseNewKeysInSilence)
{
    const std::string text = fake_os::captured_stderr([this] {
        for (int32_t i = 0; i < 4096; ++i) {
            ASSERT_NE(add_counter(i + 1), nullptr);
        }
        for (uint32_t i = 0; i < 8192; ++i) {
            ASSERT_NE(add_error(i), nullptr);
        }
        EXPECT_EQ(add_counter(5000), nullptr);
        EXPECT_EQ(add_error(9000), nullptr);
    });
    EXPECT_EQ(text, "");
    EXPECT_EQ(add_counter(4096), &image().counters[4095]);
    EXPECT_EQ(image().counter_count + image().error_count, 4096U + 8192U);
}

TEST_F(counters_test, ErrorsAreKeptApartByEveryFieldAndLoggedUnderTheirDebugBit)
{
    ostrum::set_debug_bits(ostrum::debug_fine);
    const auto add_numbered = [this](int64_t n) {
        const auto word = static_cast<uint32_t>(n);
        rt_error_add(handle_, n == 1, n == 2, n == 3 ? "x" : nullptr, n == 4 ? "x" : "", word == 5, word == 6,
                     word == 7, -2);
    };
    const std::string text = fake_os::captured_stderr([&] {
        for (int64_t n = 0; n < 8; ++n) {
            add_numbered(n);
        }
        add_numbered(7);
    });
    EXPECT_EQ(image().error_count, 8U);
    EXPECT_EQ(image().errors[7].errcnt, ~uint64_t{3});
    EXPECT_THAT(text, testing::HasSubstr(
                          "rt_error_add : adding errors for dbno[0] opcode[0](x) program[] errclass[0] "
                          "errloc[0] err[0] errcnt[-2]\n"));
    EXPECT_THAT(text, testing::HasSubstr("rt_error_add : inserted new counter at index[7]\n"));
    EXPECT_THAT(text, testing::EndsWith("rt_error_add : updated counter to errcnt[-4]\n"));
}

TEST_F(counters_test, ShortMemoryGivesNoCopyAndClearsNothing)
{
    add_counter(1, 3);
    add_error(1, 3);
    int32_t count = -1;
    fake_os::fail(fake_os::call::allocate, 1, ENOMEM, true);
    EXPECT_EQ(fake_os::captured_stderr([&] { EXPECT_EQ(rt_counters_copy(handle_, 1, &count), nullptr); }),
              "");
    EXPECT_EQ(count, 0);
    EXPECT_THAT(fake_os::captured_stderr([&] { EXPECT_EQ(rt_errors_copy(handle_, 1, &count), nullptr); }),
                testing::EndsWith("rt_errors_copy: out of memory for 304 bytes"));
    EXPECT_EQ(image().counters[0].calls + image().errors[0].errcnt, 6U);
}

TEST_F(counters_test, NonsenseInTheFileStaysInBounds)
{
    add_counter(1);
    memset(image().counters[0].opname, 'x', 4 * ostrum::text_bytes);
    memset(image().errors[0].opname, 'x', 2 * ostrum::text_bytes);
    image().counter_count = image().error_count = ~uint64_t{0};
    EXPECT_EQ(add_counter(-77), nullptr);
    EXPECT_EQ(add_error(4711), nullptr);
    int32_t count = 0;
    const c_block<ostrum::counter_entry> counters(rt_counters_copy(handle_, 0, &count));
    EXPECT_EQ(count, 4096);
    EXPECT_EQ(strlen(counters->opname) + strlen(counters->obj_type), 2U * 127);
    const c_block<ostrum::error_entry> errors(rt_errors_copy(handle_, 0, &count));
    EXPECT_EQ(count, 8192);
    EXPECT_EQ(strlen(errors->program), 127U);
    rt_counters_reset(handle_);
    rt_errors_reset(handle_);
}

TEST_F(counters_test, NullHandlesAndEntriesAreIgnored)
{
    int32_t count = 7;
    EXPECT_EQ(add(nullptr, {}), nullptr);
    EXPECT_EQ(rt_error_add(nullptr, 0, 0, nullptr, nullptr, 0, 0, 0, 1), nullptr);
    EXPECT_EQ(rt_counters_copy(nullptr, 1, &count), nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(rt_errors_copy(handle_, 1, nullptr), nullptr);
    rt_counters_reset(nullptr);
    rt_errors_reset(nullptr);
    rt_counter_reset(nullptr);
    rt_counter_update(nullptr, 1, 1, 1, 1, 1, 1);
    rt_error_update(nullptr, 1);
    EXPECT_EQ(image().counter_count, 0U);
}

} // namespace
