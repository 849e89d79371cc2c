// Paths, their order, and what calls leave in their nodes and duration buckets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "ordered_tree/stored_tree.h"
#include "perf_log/aggregation/agg_dump.h"
#include "perf_log/aggregation/agg_insert.h"
#include "perf_log/aggregation/node_update.h"
#include "support/fake_os.h"
#include "support/temp_dir.h"
#include "util/diagnostics.h"

using namespace ostrum;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int64_t ms = 1'000'000;

// A key as a caller has it on the stack: what nobody fills in is rubbish, unterminated.
agg_node key_of(int32_t opcode, const char* name = "", int32_t line = 0, const char* file = "",
                const char* type = "")
{
    agg_node key;
    memset(static_cast<void*>(&key), '?', sizeof(key));
    key.opcode = opcode;
    key.flags = 0;
    key.level = 0;
    key.ptr_program = "program";
    key.ptr_opname = name;
    key.ptr_fname = file;
    key.ptr_obj_type = type;
    key.lineno = line;
    key.db_num = 1;
    key.bucket_id = 0;
    key.log_time = 0;
    key.single_trace = 0;
    key.count_in_buckets = 0;
    key.bucket_source = nullptr;
    key.caller_ref_1 = 11;
    key.err_info = nullptr;
    key.main.total_calls = start_marker;
    key.hash_code = ostrum_hash_aggr_node(&key);
    return key;
}

agg_node end_of(agg_node key, int64_t elapsed_tv, int64_t errors = 0)
{
    key.count_in_buckets = 1;
    key.caller_ref_2 = 22;
    key.main = {};
    key.main.total_tv = key.main.min_tv = key.main.max_tv = elapsed_tv;
    key.main.total_calls = 1;
    key.main.total_errors = errors;
    return key;
}

class Aggregation : public testing::Test {
protected:
    Aggregation()
    {
        fake_os::reset();
        tree_ = create_agg_tree();
    }
    ~Aggregation() override
    {
        fake_os::fail(fake_os::call::open_file, 1, ENOENT); // leaves no buckets to the next test
        fake_os::captured_stderr([] { read_opcode_buckets(""); });
        set_debug_bits(0);
        EXPECT_EQ(bt_destroy(tree_), BT_EMPTIED);
        EXPECT_EQ(fake_os::blocks_in_use(), 0);
        fake_os::reset();
    }

    void load_buckets(const char* text) { read_opcode_buckets(dir_.write("buckets", text).c_str()); }

    uint32_t insert(agg_node key, int32_t level = 0)
    {
        key.level = level;
        return insert_agg_node(tree_, stack_.data(), &key, level, nullptr);
    }
    agg_node& started(const agg_node& key)
    {
        EXPECT_EQ(insert(key), BT_INSERTED);
        return *stack_[0].node;
    }

    temp_dir dir_;
    bt_tree* tree_ = nullptr;
    std::array<call_frame, 3> stack_{};
};

// The buckets of a node, bounds in milliseconds: "from-to:calls/errors".
std::string buckets_of(const agg_node& node)
{
    std::string text;
    for (const total_record* b = node.main.next; b != nullptr; b = b->next) {
        text += (text.empty() ? "" : " ") + std::to_string(b->bs_tv / ms) + "-" +
                std::to_string(b->be_tv / ms) + ":" + std::to_string(b->total_calls) + "/" +
                std::to_string(b->total_errors);
    }
    return text;
}

int sign(int64_t value)
{
    return value > 0 ? 1 : (value < 0 ? -1 : 0);
}

} // namespace

TEST_F(Aggregation, HashIsFnv1OverNumberOrNameLineFileAndType)
{
    // Published values of the 64-bit function for "", "a" and "foobar".
    constexpr uint64_t of_nothing = 0xcbf29ce484222325;
    constexpr uint64_t of_a = 0xaf63bd4c8601b7be;
    constexpr uint64_t of_foobar = 0x340d8765a4dda9c2;
    constexpr int32_t foob = 0x626f6f66; // as bytes in memory
    const struct {
        agg_node key;
        uint64_t hash;
    } cases[] = {{key_of(0), of_nothing},
                 {key_of(0, nullptr, 0, nullptr, nullptr), of_nothing},
                 {key_of(0, "a"), of_a},
                 {key_of(-6, "a"), of_a},
                 {key_of(0, "", 0, "a"), of_a},
                 {key_of(0, "", 0, "", "a"), of_a},
                 {key_of(0, "foo", 0, "b", "ar"), of_foobar},
                 {key_of(foob, "not hashed", 0, "a", "r"), of_foobar},
                 {key_of(0, "", foob, "ar"), of_foobar},
                 {key_of(0, "\xff"), (of_nothing * 0x100000001b3) ^ 0xff}}; // bytes are unsigned
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        EXPECT_EQ(c.key.hash_code, c.hash);
        agg_node elsewhere = c.key;
        elsewhere.ptr_program = "other";
        elsewhere.db_num = elsewhere.flags = 99;
        EXPECT_EQ(ostrum_hash_aggr_node(&elsewhere), c.hash);
    }
}

TEST_F(Aggregation, TheFirstFieldThatDiffersOrdersTwoPaths)
{
    // In order of weight. Between the two sides of a pair all fields below the deciding one say the opposite.
    using setter = void (*)(agg_node&, bool high);
    const std::vector<setter> fields = {
        [](agg_node& n, bool high) { n.hash_code = high ? UINT64_MAX : 1; },
        [](agg_node& n, bool high) { n.opcode = high ? INT32_MAX : INT32_MIN; },
        [](agg_node& n, bool high) { n.flags = high ? 1 : INT32_MIN; },
        [](agg_node& n, bool high) { n.lineno = high ? INT32_MAX : -2; },
        [](agg_node& n, bool high) { n.db_num = high ? INT64_MAX : INT64_MIN; },
        [](agg_node& n, bool high) { n.bucket_id = high ? 0 : -1; },
        [](agg_node& n, bool high) { n.ptr_opname = high ? "\xff" : "a"; },
        [](agg_node& n, bool high) { n.ptr_program = high ? "ab" : "a"; },
        [](agg_node& n, bool high) { n.ptr_fname = high ? "b" : "aa"; },
        [](agg_node& n, bool high) { n.ptr_obj_type = high ? "a" : ""; },
    };
    for (size_t decides = 0; decides < fields.size(); ++decides) {
        SCOPED_TRACE(decides);
        agg_node greater = key_of(3);
        agg_node smaller = key_of(3);
        for (size_t f = 0; f < fields.size(); ++f) {
            fields[f](greater, f <= decides);
            fields[f](smaller, f < decides || f > decides);
        }
        EXPECT_EQ(sign(__ostrum_agg_cmp_fn(&greater, &smaller)), 1);
        EXPECT_EQ(sign(__ostrum_agg_cmp_fn(&smaller, &greater)), -1);
        EXPECT_EQ(__ostrum_agg_cmp_fn(&greater, &greater), 0);
    }
    agg_node named = key_of(0, "one");
    agg_node other = key_of(0, "two");
    named.hash_code = other.hash_code;
    named.bucket_id = other.bucket_id = 5;
    EXPECT_EQ(__ostrum_agg_cmp_fn(&named, &other), 0) << "a positive id stands for the texts";
}

TEST_F(Aggregation, ANodeKeepsCopiesOfItsTextsAndNoneOfTheCallersPointers)
{
    const std::string longest(127, 'l');
    std::string file = "file.c";
    agg_node key = key_of(0, longest.c_str(), 7, file.c_str(), nullptr);
    const uint32_t err_info[3] = {};
    key.bucket_source = &key.main;
    key.err_info = err_info;
    key.count_in_buckets = 1;
    const agg_node& node = started(key);
    file = "changed"; // the node has its own
    EXPECT_EQ(node.opname, longest);
    EXPECT_STREQ(node.program, "program");
    EXPECT_STREQ(node.fname, "file.c");
    EXPECT_STREQ(node.obj_type, "");
    const std::vector<const void*> pointers{
        node.ptr_program,   node.ptr_opname,   node.ptr_fname, node.ptr_obj_type,    node.bucket_def,
        node.bucket_source, node.live_counter, node.err_info,  node.sub_opcode_tree, node.main.next};
    EXPECT_EQ(pointers, std::vector<const void*>(pointers.size(), nullptr));
    EXPECT_EQ(node.count_in_buckets, 0);
    EXPECT_EQ(node.main.total_calls, 0);
    EXPECT_EQ(node.main.min_tv, 0);

    EXPECT_EQ(insert(key_of(0, longest.c_str(), 7, "file.c", "")), BT_EXISTED);
    EXPECT_EQ(insert(key_of(0, longest.c_str(), 8, "file.c", "")), BT_INSERTED)
        << "another line, another path";
    const std::string too_long(128, 'l');
    EXPECT_EQ(insert(key_of(0, too_long.c_str())), BT_INSERTED);
    EXPECT_EQ(insert(key_of(0, too_long.c_str())), BT_INSERTED) << "never equal to its copy, which is cut";
}

// Most of them go behind the record before: the place is the same as from the root.
TEST_F(Aggregation, RecordsOfOneHashHaveTheirOrderHoweverTheyCome)
{
    for (const int step : {1, 7, 99}) { // upwards, here and there, downwards
        ASSERT_EQ(bt_empty(tree_), BT_EMPTIED);
        for (const uint32_t expected : {BT_INSERTED, BT_EXISTED}) {
            for (int i = 0; i < 100; ++i) {
                agg_node key = key_of(3 + i % 2);
                key.flags = i * step % 100;
                EXPECT_EQ(insert(key), expected);
            }
        }
        const agg_node* last = nullptr;
        int count = 0;
        for (bt_node* node = first_in_order(*tree_); node != nullptr; node = next_in_order(*tree_, node)) {
            const auto* record = static_cast<const agg_node*>(node->data);
            EXPECT_TRUE(last == nullptr || __ostrum_agg_cmp_fn(record, last) > 0);
            EXPECT_EQ(bt_search(tree_, record), record);
            last = record;
            ++count;
        }
        EXPECT_EQ(count, 100);
    }
}

TEST_F(Aggregation, AStartLeavesItsReferenceOnlyAndAnEndItsFigures)
{
    agg_node key = key_of(3);
    agg_node& node = started(key);
    EXPECT_EQ(node.caller_ref_1, 11U);
    EXPECT_EQ(node.caller_ref_2, 0U);
    key.caller_ref_1 = 12;
    EXPECT_EQ(insert(key), BT_EXISTED);
    EXPECT_EQ(node.caller_ref_1, 12U);
    EXPECT_EQ(node.caller_ref_2, 0U);
    EXPECT_EQ(node.main.total_calls, 0);

    agg_node end = end_of(key, 5 * ms);
    // total, min, max, cache time, records, calls, errors, cache calls, user, system
    end.main = {5, 4, 6, 10, 20, 2, 0, 30, 40, 50, 0, 0, nullptr};
    void* out = nullptr;
    EXPECT_EQ(agg_upd_fn(&node, &end, BT_EXISTED, &out), 1);
    EXPECT_EQ(agg_upd_fn(&node, &end, BT_EXISTED, nullptr), 1);
    EXPECT_EQ(out, &node);
    EXPECT_EQ(node.caller_ref_2, 22U);
    const total_record twice = {10, 4, 6, 20, 40, 4, 0, 60, 80, 100, 0, 0, nullptr};
    EXPECT_EQ(memcmp(&node.main, &twice, sizeof(twice)), 0);
}

TEST_F(Aggregation, ErrorsNeverLowerTheMinimumOfPathOrBucket)
{
    const struct {
        std::vector<std::pair<int64_t, int64_t>> calls; // elapsed, errors
        int64_t min_tv;
        int64_t max_tv;
    } cases[] = {{{{5, 0}, {3, 0}, {4, 0}}, 3, 5},
                 {{{5, 0}, {1, 1}, {9, 1}}, 5, 9},
                 {{{2, 1}, {1, 1}}, 0, 2},
                 {{{2, 1}, {7, 0}}, 7, 7}};
    load_buckets("* 1\n");
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        agg_node key = key_of(3);
        key.flags = static_cast<int32_t>(&c - cases);
        agg_node& node = started(key);
        for (const auto& [elapsed_tv, errors] : c.calls) {
            const agg_node end = end_of(key, elapsed_tv, errors);
            EXPECT_EQ(agg_upd_fn(&node, &end, BT_EXISTED, nullptr), 1);
        }
        for (const total_record* totals : {&node.main, node.main.next}) {
            EXPECT_EQ(totals->min_tv, c.min_tv);
            EXPECT_EQ(totals->max_tv, c.max_tv);
        }
    }
}

TEST_F(Aggregation, CallsFallIntoTheFirstBucketWhoseBoundsHoldThem)
{
    load_buckets("3 0.01 0.1\n4 0.1 0.01 1\n5\n6 0\n7 0.01 0.01 0.02\n* 0.5\n");
    const struct {
        int32_t opcode;
        std::vector<int64_t> elapsed_ms;
        const char* buckets;
    } cases[] = {{3, {}, ""},
                 {3, {50}, "0-10:0/0 10-100:1/0"}, // the one below comes with it, the one above does not
                 {3, {9, 10, 99, 100, 1}, "0-10:2/0 10-100:2/0 100-0:1/0"},
                 {3, {-5}, "0-10:1/0"},      // a clock set back
                 {4, {50, 99}, "0-100:2/0"}, // bounds in the order of the file
                 {4, {100, 999}, "0-100:0/0 100-10:0/0 10-1000:2/0"},
                 {4, {1000, 1}, "0-100:1/0 100-10:0/0 10-1000:0/0 1000-0:1/0"},
                 {5, {0, 7}, "0-0:2/0"},      // no bounds: everything
                 {6, {5}, "0-0:0/0 0-0:1/0"}, // a bound of 0 is a bound
                 {7, {10}, "0-10:0/0 10-10:0/0 10-20:1/0"},
                 {99, {499, 500}, "0-500:1/0 500-0:1/0"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        agg_node key = key_of(c.opcode);
        key.flags = static_cast<int32_t>(&c - cases);
        agg_node& node = started(key);
        for (const int64_t elapsed_ms : c.elapsed_ms) {
            const agg_node end = end_of(key, elapsed_ms * ms);
            EXPECT_EQ(agg_upd_fn(&node, &end, BT_EXISTED, nullptr), 1);
        }
        EXPECT_EQ(buckets_of(node), c.buckets);
    }
}

TEST_F(Aggregation, BucketsAreForMarkedCallsAndMayGoByTotalsOfTheCaller)
{
    load_buckets("* 0.01\n");
    agg_node& node = started(key_of(3));
    agg_node end = end_of(key_of(3), 1 * ms, 1);
    end.count_in_buckets = 0;
    EXPECT_EQ(agg_upd_fn(&node, &end, BT_EXISTED, nullptr), 1);
    EXPECT_EQ(buckets_of(node), "");
    total_record whole{}; // of a call whose first part was flushed before it ended
    whole.total_tv = 15 * ms;
    end.count_in_buckets = 1;
    end.bucket_source = &whole;
    EXPECT_EQ(agg_upd_fn(&node, &end, BT_EXISTED, nullptr), 1);
    EXPECT_EQ(buckets_of(node), "0-10:0/0 10-0:1/1");
    EXPECT_EQ(node.main.next->next->total_tv, 1 * ms) << "the source chooses, the key is added";

    agg_node identified = key_of(4);
    identified.bucket_id = 1;
    EXPECT_EQ(started(identified).bucket_def, nullptr);
}

TEST_F(Aggregation, EachParentHasItsOwnCallees)
{
    const agg_node callee = key_of(7);
    agg_node& one = started(key_of(1));
    EXPECT_EQ(insert(callee, 1), BT_INSERTED);
    const agg_node* below_one = stack_[1].node;
    EXPECT_EQ(below_one->level, 1);
    agg_node& two = started(key_of(2));
    EXPECT_EQ(insert(callee, 1), BT_INSERTED);
    EXPECT_EQ(insert(callee, 1), BT_EXISTED);
    EXPECT_EQ(insert(callee, 2), BT_INSERTED); // calls itself
    const agg_node* below_two = stack_[1].node;
    EXPECT_EQ(bt_search(one.sub_opcode_tree, &callee), below_one);
    EXPECT_EQ(bt_search(two.sub_opcode_tree, &callee), below_two);
    EXPECT_EQ(bt_search(below_two->sub_opcode_tree, &callee), stack_[2].node);

    agg_node single = callee;
    single.single_trace = 1;
    stack_[0].single_node = &one; // the single-operation tree has its own place in the stack
    EXPECT_EQ(insert(single, 1), BT_EXISTED);
    EXPECT_EQ(stack_[1].single_node, below_one);
    EXPECT_EQ(stack_[1].node, below_two);
}

TEST_F(Aggregation, ShortMemoryCostsTheUpdateAndIsMadeUpForLater)
{
    using fake_os::call;
    load_buckets("* 0.01 0.1\n");
    agg_node& node = started(key_of(3));
    const agg_node end = end_of(key_of(3), 50 * ms);
    fake_os::fail(call::allocate, 2, ENOMEM);
    uint32_t result = BT_EXISTED;
    std::string errors = fake_os::captured_stderr([&] { result = insert(end); });
    EXPECT_EQ(result, BT_FAIL);
    EXPECT_THAT(errors, HasSubstr("agg_upd_fn : out of memory\n"));
    EXPECT_THAT(errors, EndsWith("insert_agg_node : failed inserting opcode[3] level[0]\n"));
    EXPECT_EQ(buckets_of(node), "0-10:0/0");
    EXPECT_EQ(insert(end), BT_EXISTED);
    EXPECT_EQ(buckets_of(node), "0-10:0/0 10-100:1/0");
    EXPECT_EQ(node.main.total_calls, 2) << "the path's own totals had room both times";

    fake_os::fail(call::allocate, 1, ENOMEM);
    errors = fake_os::captured_stderr([&] { result = insert(key_of(7), 1); });
    EXPECT_EQ(result, BT_FAIL);
    EXPECT_THAT(
        errors,
        HasSubstr("insert_agg_node : failed creating new sub-opcode tree for opcode[3] at level[1]\n"));
    EXPECT_EQ(stack_[1].node, nullptr);
    EXPECT_EQ(insert(key_of(7), 1), BT_INSERTED);
}

TEST_F(Aggregation, UpdatesRefuseWhatTheyDoNotKnow)
{
    agg_node& node = started(key_of(3));
    const agg_node end = end_of(key_of(3), ms);
    EXPECT_EQ(agg_upd_fn(nullptr, &end, BT_EXISTED, nullptr), 0);
    EXPECT_EQ(agg_upd_fn(&node, nullptr, BT_EXISTED, nullptr), 0);
    const std::string errors =
        fake_os::captured_stderr([&] { EXPECT_EQ(agg_upd_fn(&node, &end, BT_DELETED, nullptr), 0); });
    EXPECT_THAT(errors, EndsWith("agg_upd_fn : strange status[4] passed to tree update func.\n"));
    EXPECT_EQ(node.main.total_calls, 0);
}

TEST_F(Aggregation, DumpsShowBucketsOfANodeAndNoRubbishOfAKey)
{
    load_buckets("* 0.01\n");
    const agg_node key = key_of(0, "named");
    agg_node& node = started(key);
    const agg_node end = end_of(key, 50 * ms);
    agg_upd_fn(&node, &end, BT_EXISTED, nullptr);
    const auto dump = [](const agg_node& shown) {
        return fake_os::captured_stderr([&] { __ostrum_dump_agg_node(&shown, "EXIT"); });
    };
    EXPECT_EQ(dump(node), "");
    set_debug_bits(debug_fine);
    EXPECT_THAT(dump(node), testing::AllOf(HasSubstr("][EXIT]\n"), HasSubstr("(named)\n"),
                                           HasSubstr("  TOTAL           : 0 (main)\n"),
                                           HasSubstr("  TOTAL           : 2 (bucket)\n"),
                                           HasSubstr("  total_tv        : 0.050000000\n")));
    EXPECT_THAT(dump(key),
                testing::AllOf(HasSubstr("(named)\n"), Not(HasSubstr("??")), Not(HasSubstr("TOTAL"))));
}
