#include "component/data_file_fixture.h"

#include <thread>
#include <vector>

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
    const char *program = "p", *fname = "f", *obj_type = "t";
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
    ostrum::error_entry* error = add_error(3, 4);
    errno = EBADMSG;
    rt_counter_update(entry, 1, 2, 3, 4, 5, 6);
    add_counter(6, 10);
    int32_t count = -1;
    const c_block<ostrum::counter_entry> copies(rt_counters_copy(handle_, 1, &count));
    EXPECT_EQ(errno, EBADMSG);
    ASSERT_EQ(count, 2);
    const auto figures = [](const ostrum::counter_entry& e) {
        return std::vector<uint64_t>{e.calls, e.errors, e.recs, e.total_t, e.u_cpu_t, e.s_cpu_t};
    };
    EXPECT_EQ(figures(*copies), (std::vector<uint64_t>{2, 2, 3, 4, 5, 6}));
    EXPECT_EQ(figures(*entry), std::vector<uint64_t>(6, 0));
    const c_block<ostrum::error_entry> errors(rt_errors_copy(handle_, 1, &count));
    ASSERT_EQ(count, 1);
    EXPECT_EQ(errors->errcnt, 4U);
    EXPECT_EQ(error->errcnt, 0U);

    EXPECT_EQ(add_counter(5, 4), entry);
    EXPECT_EQ(add_error(3, 2), error);
    EXPECT_EQ(entry->calls + error->errcnt, 6U);
    rt_counters_reset(handle_);
    rt_errors_reset(handle_);
    EXPECT_EQ(entry->calls + image().counters[1].calls + error->errcnt, 0U);
}

TEST_F(counters_test, ThreadsThatFillTheTableTogetherStopAtItsEnd)
{
    for (int round = 0; round < 4; ++round) { // several wait for the last place in most rounds, not in all
        open(host_flags | DATA_FILE_RESET);
        std::vector<std::thread> threads;
        for (int32_t thread = 1; thread <= 8; ++thread) {
            threads.emplace_back([this, thread] {
                for (int32_t i = 0; i < 1'000; ++i) {
                    add_counter(thread * 1'000 + i);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(image().counter_count, std::size(image().counters));
    }
}

TEST_F(counters_test, ErrorsAreKeptApartByEveryField)
{
    for (const int64_t n : {0, 1, 2, 3, 4, 5, 6, 7, 7}) {
        const auto word = static_cast<uint32_t>(n);
        rt_error_add(handle_, n == 1, n == 2, n == 3 ? "x" : nullptr, n == 4 ? "x" : "", word == 5, word == 6,
                     word == 7, -2);
    }
    EXPECT_EQ(image().error_count, 8U);
    EXPECT_EQ(image().errors[7].errcnt, ~uint64_t{3});
}

} // namespace
