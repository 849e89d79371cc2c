#include <algorithm>
#include <array>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <regex>
#include <vector>

#include "component/data_file_fixture.h"
#include "data_file/snapshot.h"
#include "ostrum_data.h"

namespace {

using namespace ostrum;

template <typename Record>
struct destroy {
    void operator()(Record** list) const { destroy_list(list); }
};
template <typename Record>
using owned_list = std::unique_ptr<Record*, destroy<Record>>;

// What one record says, the fields outside the mask left out, and its totals.
using row_key = std::vector<std::string>;
using row = std::pair<row_key, std::array<uint64_t, 6>>;

row row_of(const counter_entry& e, int32_t kept)
{
    const auto text = [kept](int32_t bit, const char* t) { return (kept & bit) != 0 ? t : ""; };
    const auto number = [kept](int32_t bit, auto n) { return std::to_string((kept & bit) != 0 ? n : 0); };
    return {{number(1, e.opcode), text(1, e.opname), text(2, e.obj_type), text(4, e.program),
             number(8, e.opflags), text(16, e.fname), number(32, e.lineno), number(64, e.db_number)},
            {e.recs, e.calls, e.errors, e.total_t, e.u_cpu_t, e.s_cpu_t}};
}

row row_of(const error_entry& e, int32_t kept)
{
    const auto text = [kept](int32_t bit, const char* t) { return (kept & bit) != 0 ? t : ""; };
    const auto number = [kept](int32_t bit, auto n) { return std::to_string((kept & bit) != 0 ? n : 0); };
    return {{number(1, e.dbno), text(2, e.program), number(4, e.opcode), text(4, e.opname),
             number(8, e.err_class), number(16, e.location), number(32, e.errnum)},
            {e.errcnt}};
}

template <typename Entry, size_t N>
std::vector<row> rows_of_table(const Entry (&entries)[N])
{
    std::vector<row> rows;
    std::transform(std::begin(entries), std::end(entries), std::back_inserter(rows),
                   [](const Entry& e) { return row_of(e, -1); });
    return rows;
}

// The aggregation from its definition: entries with equal kept fields summed where the first of them stood.
template <typename Entry>
std::vector<row> expected_rows(const Entry* entries, size_t count, int32_t kept)
{
    std::vector<row> rows;
    std::map<row_key, size_t> places;
    for (size_t i = 0; i < count; ++i) {
        const row next = row_of(entries[i], kept);
        const auto [place, is_new] = places.try_emplace(next.first, rows.size());
        if (is_new) {
            rows.push_back(next);
            continue;
        }
        for (size_t t = 0; t < next.second.size(); ++t) {
            rows[place->second].second[t] += next.second[t];
        }
    }
    return rows;
}

// All fields of the records of a list, which has to be `count` long and to end in null.
template <typename Record>
std::vector<row> rows_of(Record* const* list, int32_t count)
{
    std::vector<row> rows;
    for (int32_t i = 0; i < count; ++i) {
        rows.push_back(row_of(*list[i], -1));
        EXPECT_EQ(list[i], list[0] + i) << "one block";
    }
    EXPECT_TRUE(list != nullptr && list[count] == nullptr);
    return rows;
}

// Diagnostics without the prefix that each begins with.
template <typename Body>
std::string messages_of(Body body)
{
    const std::regex prefix(R"(\d{4}/\d\d/\d\d [0-9:.]+ \(\d+/\d+\) : )");
    return std::regex_replace(fake_os::captured_stderr(body), prefix, "");
}

class query_test : public data_file_fixture {
protected:
    query_test() { open(); }

    // Texts of one letter with rests of others behind the terminator, and numbers, all with few values, so
    // that entries agree in some fields and not in others.
    template <size_t N>
    void random_text(char (&field)[N])
    {
        memset(field, static_cast<int>('p' + few()), N);
        field[0] = static_cast<char>('a' + few());
        field[few() == 0 ? 0 : 1] = '\0';
    }
    uint64_t few() { return random_() % 3; }

    void fill_counters()
    {
        for (counter_entry& e : image().counters) {
            for (auto* text : {&e.opname, &e.program, &e.fname, &e.obj_type}) {
                random_text(*text);
            }
            e.opcode = few();
            e.opflags = few() << 33;
            e.lineno = static_cast<int64_t>(few()) - 1;
            e.db_number = static_cast<int64_t>(few()) - 1;
            for (auto* total : {&e.recs, &e.calls, &e.errors, &e.total_t, &e.u_cpu_t, &e.s_cpu_t}) {
                *total = random_();
            }
        }
        image().counter_count = max_counters;
    }
    void fill_errors()
    {
        for (error_entry& e : image().errors) {
            random_text(e.opname);
            random_text(e.program);
            e.dbno = static_cast<int64_t>(few()) - 1;
            for (auto* word : {&e.opcode, &e.err_class, &e.location, &e.errnum}) {
                *word = few();
            }
            e.errcnt = random_();
        }
        image().error_count = max_errors;
    }

    template <typename Record>
    std::vector<row> rows_by(Record** (*aggregated)(rt_info*, int32_t, int32_t*, uint32_t), int32_t kept,
                             int32_t reset)
    {
        int32_t count = -1;
        const owned_list<Record> list(aggregated(handle_, reset, &count, static_cast<uint32_t>(kept)));
        return rows_of(list.get(), count);
    }
    std::vector<row> counters_by(int32_t kept, int32_t reset = 0)
    {
        return rows_by(aggregated_counter_list, kept, reset);
    }
    std::vector<row> errors_by(int32_t kept, int32_t reset = 0)
    {
        return rows_by(aggregated_error_list, kept, reset);
    }

    std::mt19937 random_; // NOLINT(cert-msc51-cpp): the same numbers in every run
};

TEST_F(query_test, AggregationSumsWhatIsEqualInTheKeptFields)
{
    fill_counters();
    fill_errors();
    const int64_t in_use = fake_os::blocks_in_use();
    // each bit alone, all but each, all, a few together, none that is known
    for (const int32_t kept : {1,  2,   4,   8,    16, 32, 64, 126, 125, 123, 119, 111, 95,
                               63, 127, 255, 0x29, 3,  62, 61, 59,  55,  47,  31,  128, INT32_MIN}) {
        SCOPED_TRACE(kept);
        EXPECT_EQ(counters_by(kept), expected_rows(image().counters, 4096, kept));
        EXPECT_EQ(errors_by(kept), expected_rows(image().errors, 8192, kept));
    }
    EXPECT_EQ(counters_by(128).size() + errors_by(64).size(), 2U);
    EXPECT_LT(counters_by(127).size(), 4096U);
    EXPECT_GT(counters_by(127).size(), 2048U);
    // no mask: the table as it is
    EXPECT_EQ(counters_by(0), rows_of_table(image().counters));
    EXPECT_EQ(errors_by(0), rows_of_table(image().errors));
    EXPECT_EQ(fake_os::blocks_in_use(), in_use);
}

TEST_F(query_test, KeysThatAllDifferStayApart)
{
    for (uint64_t i = 0; i < max_counters; ++i) {
        image().counters[i].opcode = i << 20; // low bits alike
        image().counters[i].calls = i;
    }
    image().counter_count = max_counters;
    EXPECT_EQ(counters_by(1), expected_rows(image().counters, 4096, 1));
    EXPECT_EQ(counters_by(1).size(), 4096U);
}

TEST_F(query_test, AResetClearsTheTotalsOfAllEntriesThatWereMerged)
{
    for (const int32_t opcode : {5, 6, 7}) {
        add_counter(opcode, opcode);
        add_error(static_cast<uint32_t>(opcode), opcode);
    }
    const auto calls = [this](int32_t reset) { return counters_by(OSTRUM_BY_PROGRAM, reset)[0].second[1]; };
    const auto errors = [this](int32_t reset) { return errors_by(OSTRUM_ERROR_BY_DBNO, reset)[0].second[0]; };
    EXPECT_EQ(calls(0) + errors(0), 36U);
    EXPECT_EQ(calls(1) + errors(1), 36U);
    EXPECT_EQ(calls(1) + errors(1), 0U);
    EXPECT_EQ(counters_by(OSTRUM_BY_OPCODE).size() + errors_by(OSTRUM_ERROR_BY_ERRNUM).size(), 6U);
    add_counter(6, 10);
    EXPECT_EQ(calls(0), 10U);
}

TEST_F(query_test, NothingThereIsNullInSilence)
{
    int32_t counts[3] = {7, 7, 7};
    EXPECT_EQ(messages_of([&] {
                  EXPECT_EQ(aggregated_counter_list(handle_, 1, &counts[0], 127U), nullptr);
                  EXPECT_EQ(error_list(handle_, 1, &counts[1]), nullptr);
                  EXPECT_EQ(variable_list(handle_, "not there", &counts[2]), nullptr);
              }),
              "");
    EXPECT_EQ(counts[0] + counts[1] + counts[2], 0);
}

TEST_F(query_test, ShortMemoryIsReportedByTheStepThatMetIt)
{
    add_counter(1);
    add_error(1);
    rt_variable_add(handle_, "a", "1", 0);
    int32_t count = 7;
    const auto counters = [&] { return aggregated_counter_list(handle_, 1, &count, 1U); };
    const auto errors = [&] { return aggregated_error_list(handle_, 1, &count, 1U); };
    const auto named = [&] { return variable_list(handle_, "a", &count); };
    const struct {
        std::function<void*()> call;
        int64_t allocation; // that fails: 1 the copies, 2 and 3 merging, the last one the list
        const char* messages;
    } cases[] = {
        {counters, 1, "ostrum_counters_get : out of memory\n"},
        {counters, 2, "aggregate_counters: out of memory\nostrum_counters_get_aggr : out of memory\n"},
        {counters, 3, "ostrum_counters_get : out of memory\n"},
        {errors, 1, "rt_errors_copy: out of memory for 304 bytesostrum_errors_get : out of memory\n"},
        {errors, 2, "aggregate_errors: out of memory\nostrum_errors_get_aggr : out of memory\n"},
        {errors, 3, "ostrum_errors_get : out of memory\n"},
        {named, 1, "ostrum_variables_get : out of memory\n"},
        {named, 2, "ostrum_variables_get : out of memory\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.messages);
        count = 1;
        image().counters[0].calls = image().errors[0].errcnt = 1;
        const int64_t in_use = fake_os::blocks_in_use();
        fake_os::fail(fake_os::call::allocate, c.allocation, ENOMEM);
        EXPECT_EQ(messages_of([&] { EXPECT_EQ(c.call(), nullptr); }), c.messages);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(fake_os::blocks_in_use(), in_use);
        // a reset has happened once the copies were made
        EXPECT_EQ(image().counters[0].calls + image().errors[0].errcnt,
                  c.allocation == 1 || c.messages[7] == 'v' ? 2U : 1U);
    }
}

} // namespace
