// Paths, their order, and what calls leave in their nodes and duration buckets.
#include "support/tracing_fixture.h"

#include <gmock/gmock.h>

#include "ordered_tree/stored_tree.h"
#include "perf_log/aggregation/agg_dump.h"
#include "perf_log/aggregation/agg_insert.h"
#include "perf_log/aggregation/node_update.h"
#include "perf_log/buckets/bucket_file.h"
#include "perf_log/flush/inside_opcode_flush.h"
#include "util/diagnostics.h"

using namespace ostrum;
using fake_os::captured_stderr;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

agg_node key_of(int32_t opcode, const char* name = "", int32_t line = 0, const char* file = "",
                const char* type = "")
{
    agg_node key{};
    key.opcode = opcode;
    key.ptr_program = "program";
    key.ptr_opname = name;
    key.ptr_fname = file;
    key.ptr_obj_type = type;
    key.lineno = line;
    key.main.total_calls = start_marker;
    key.hash_code = ostrum_hash_aggr_node(&key);
    return key;
}

class Aggregation : public tracing_fixture {
protected:
    Aggregation() { set_variable("time_on", "2"); }
    ~Aggregation() override
    {
        drop_context();
        fake_os::fail(fake_os::call::open_file, 1, ENOENT); // leaves no buckets to the next test
        captured_stderr([] { read_opcode_buckets(""); });
        EXPECT_LE(fake_os::blocks_in_use(), blocks_before_ + 1); // one is kept for the next text
    }

    void load_buckets(const char* text) { read_opcode_buckets(dir_.write("buckets", text).c_str()); }

    bt_tree* tree() { return context().trace.tree; }
    uint32_t insert(const agg_node& key)
    {
        return insert_agg_node(tree(), context().frames, &key, 0, nullptr);
    }
    agg_node& started(const agg_node& key)
    {
        EXPECT_EQ(insert(key), BT_INSERTED);
        return *context().frames[0].node;
    }

private:
    const int64_t blocks_before_ = fake_os::blocks_in_use();
};

// The buckets of a node, bounds in milliseconds: "from-to:calls/errors".
std::string buckets_of(const agg_node& node)
{
    std::string text;
    constexpr int64_t ms = 1'000'000;
    for (const total_record* b = node.main.next; b != nullptr; b = b->next) {
        text += (text.empty() ? "" : " ") + std::to_string(b->bs_tv / ms) + "-" +
                std::to_string(b->be_tv / ms) + ":" + std::to_string(b->total_calls) + "/" +
                std::to_string(b->total_errors);
    }
    return text;
}

} // namespace

TEST_F(Aggregation, HashIsFnv1OverNumberOrNameLineFileAndType)
{
    // Published values of the 64-bit function for "", "a" and "foobar".
    constexpr uint64_t of_nothing = 0xcbf29ce484222325;
    constexpr uint64_t of_a = 0xaf63bd4c8601b7be;
    constexpr uint64_t of_foobar = 0x340d8765a4dda9c2;
    constexpr int32_t foob = 0x626f6f66; // as bytes in memory
    EXPECT_EQ(key_of(0, nullptr, 0, nullptr, nullptr).hash_code, of_nothing);
    EXPECT_EQ(key_of(-6, "a").hash_code, of_a);
    EXPECT_EQ(key_of(0, "foo", 0, "b", "ar").hash_code, of_foobar);
    EXPECT_EQ(key_of(0, "", foob, "ar").hash_code, of_foobar);
    EXPECT_EQ(key_of(0, "\xff").hash_code, (of_nothing * 0x100000001b3) ^ 0xff) << "bytes are unsigned";
    agg_node numbered = key_of(foob, "not hashed", 0, "a", "r");
    numbered.ptr_program = "other";
    numbered.db_num = numbered.flags = 99;
    EXPECT_EQ(ostrum_hash_aggr_node(&numbered), of_foobar);
    EXPECT_NE(key_of(1).hash_code, of_nothing);
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
        EXPECT_GT(__ostrum_agg_cmp_fn(&greater, &smaller), 0);
        EXPECT_LT(__ostrum_agg_cmp_fn(&smaller, &greater), 0);
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
    EXPECT_EQ(std::string(node.opname) + node.program + node.fname + node.obj_type,
              longest + "programfile.c");
    const std::vector<const void*> pointers{
        node.ptr_program,   node.ptr_opname,   node.ptr_fname, node.ptr_obj_type,    node.bucket_def,
        node.bucket_source, node.live_counter, node.err_info,  node.sub_opcode_tree, node.main.next};
    EXPECT_EQ(pointers, std::vector<const void*>(pointers.size(), nullptr));
    EXPECT_EQ(node.count_in_buckets + node.main.total_calls + node.main.min_tv, 0);
    EXPECT_EQ(insert(key_of(0, longest.c_str(), 7, "file.c", "")), BT_EXISTED);
}

// Most of them go behind the record before: the place is the same as from the root.
TEST_F(Aggregation, RecordsOfOneHashHaveTheirOrderHoweverTheyCome)
{
    for (const int step : {1, 7, 99}) { // upwards, here and there, downwards
        ASSERT_EQ(bt_empty(tree()), BT_EMPTIED);
        for (const uint32_t expected : {BT_INSERTED, BT_EXISTED}) {
            for (int i = 0; i < 100; ++i) {
                agg_node key = key_of(3 + i % 2);
                key.flags = i * step % 100;
                EXPECT_EQ(insert(key), expected);
            }
        }
        const agg_node* last = nullptr;
        int count = 0;
        for (bt_node* node = first_in_order(*tree()); node != nullptr; node = next_in_order(*tree(), node)) {
            const auto* record = static_cast<const agg_node*>(node->data);
            EXPECT_TRUE(last == nullptr || __ostrum_agg_cmp_fn(record, last) > 0);
            EXPECT_EQ(bt_search(tree(), record), record);
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
    key.caller_ref_1 = 12;
    key.caller_ref_2 = 13;
    EXPECT_EQ(insert(key), BT_EXISTED);
    EXPECT_EQ(node.caller_ref_1, 12U);
    EXPECT_EQ(node.caller_ref_2 + static_cast<uint64_t>(node.main.total_calls), 0U);

    // total, min, max, cache time, records, calls, errors, cache calls, user, system
    key.main = {5, 4, 6, 10, 20, 2, 0, 30, 40, 50, 0, 0, nullptr};
    void* out = nullptr;
    EXPECT_EQ(agg_upd_fn(&node, &key, BT_EXISTED, &out), 1);
    EXPECT_EQ(out, &node);
    EXPECT_EQ(insert(key), BT_EXISTED);
    EXPECT_EQ(agg_upd_fn(nullptr, &key, BT_EXISTED, nullptr), 0);
    EXPECT_EQ(agg_upd_fn(&node, nullptr, BT_EXISTED, nullptr), 0);
    EXPECT_THAT(captured_stderr([&] { EXPECT_EQ(agg_upd_fn(&node, &key, BT_DELETED, nullptr), 0); }),
                EndsWith("agg_upd_fn : strange status[4] passed to tree update func.\n"));
    EXPECT_EQ(node.caller_ref_2, 13U);
    const total_record twice = {10, 4, 6, 20, 40, 4, 0, 60, 80, 100, 0, 0, nullptr};
    EXPECT_EQ(memcmp(&node.main, &twice, sizeof(twice)), 0);
}

TEST_F(Aggregation, ErrorsNeverLowerTheMinimumOfPathOrBucket)
{
    load_buckets("* 1\n");
    const struct {
        int64_t elapsed_tv;
        uint32_t errnum;
        int64_t min_tv, max_tv;
    } calls[] = {{2, 1, 0, 2}, {1, 1, 0, 2}, {7, 0, 7, 7}, {5, 0, 5, 7}, {1, 1, 5, 7}, {9, 1, 5, 9}};
    for (const auto& c : calls) {
        SCOPED_TRACE(&c - calls);
        run({.opcode = 3, .errnum = c.errnum}, c.elapsed_tv);
        for (const total_record* totals : {&node(3)->main, node(3)->main.next}) {
            EXPECT_EQ(totals->min_tv, c.min_tv);
            EXPECT_EQ(totals->max_tv, c.max_tv);
        }
    }
}

TEST_F(Aggregation, CallsFallIntoTheFirstBucketWhoseBoundsHoldThem)
{
    load_buckets("3 0.01 0.1\n4 0.1 0.01 1\n5\n6 0\n7 0.01 0.01 0.02\n* 0.5\n");
    const std::tuple<int32_t, std::vector<int64_t>, const char*> cases[] = {
        {3, {50}, "0-10:0/0 10-100:1/0"}, // the one below comes with it, the one above does not
        {3, {9, 10, 99, 100, 1}, "0-10:2/0 10-100:2/0 100-0:1/0"},
        {4, {50, 99}, "0-100:2/0"}, // bounds in the order of the file
        {4, {100, 999}, "0-100:0/0 100-10:0/0 10-1000:2/0"},
        {4, {1000, 1}, "0-100:1/0 100-10:0/0 10-1000:0/0 1000-0:1/0"},
        {5, {0, 7}, "0-0:2/0"},      // no bounds: everything
        {6, {5}, "0-0:0/0 0-0:1/0"}, // a bound of 0 is a bound
        {7, {10}, "0-10:0/0 10-10:0/0 10-20:1/0"},
        {99, {499, 500}, "0-500:1/0 500-0:1/0"}};
    for (const auto& [opcode, all_elapsed_ms, buckets] : cases) {
        SCOPED_TRACE(buckets);
        drop_context();
        for (const int64_t elapsed_ms : all_elapsed_ms) {
            run({.opcode = opcode}, elapsed_ms * ms);
        }
        EXPECT_EQ(buckets_of(*node(opcode)), buckets);
    }
}

TEST_F(Aggregation, TheWholeCallChoosesTheBucketAlsoWhenAPartIsFlushedBefore)
{
    load_buckets("* 0.01\n");
    start({.opcode = 3});
    fake_os::advance_clock(14 * ms);
    inside_opcode_flush(&context(), ostrum_now_tv());
    EXPECT_EQ(buckets_of(*node(3)), "") << "parts are not calls";
    fake_os::advance_clock(1 * ms);
    end({.opcode = 3, .errnum = 6});
    EXPECT_EQ(buckets_of(*node(3)), "0-10:0/0 10-0:1/1");
    EXPECT_EQ(node(3)->main.next->next->total_tv, 1 * ms) << "the rest is added";

    agg_node identified = key_of(4);
    identified.bucket_id = 1;
    EXPECT_EQ(started(identified).bucket_def, nullptr);
}

TEST_F(Aggregation, ShortMemoryCostsTheUpdateAndIsMadeUpForLater)
{
    load_buckets("* 0.01 0.1\n");
    start({.opcode = 3});
    fake_os::advance_clock(50 * ms);
    fake_os::fail(fake_os::call::allocate, 2, ENOMEM);
    EXPECT_THAT(captured_stderr([&] { end({.opcode = 3}); }),
                AllOf(HasSubstr("agg_upd_fn : out of memory\n"),
                      HasSubstr("perf_log : failed updating aggregation - level[0] opcode[3]()")));
    run({.opcode = 3}, 50 * ms);
    EXPECT_EQ(buckets_of(*node(3)), "0-10:0/0 10-100:1/0");
    EXPECT_EQ(node(3)->main.total_calls, 2) << "the path's own totals had room both times";

    start({.opcode = 3});
    fake_os::fail(fake_os::call::allocate, 1, ENOMEM);
    EXPECT_THAT(
        captured_stderr([&] { run({.opcode = 7}, ms); }),
        AllOf(HasSubstr("insert_agg_node : failed creating new sub-opcode tree for opcode[3] at level[1]\n"),
              HasSubstr("insert_agg_node : failed inserting opcode[7] level[1]\n"),
              HasSubstr("write_log : error inserting aggregate - level[1] opcode[7]\n")));
    run({.opcode = 7}, ms);
    end({.opcode = 3});
    EXPECT_EQ(find_node(node(3)->sub_opcode_tree, 7)->main.total_calls, 1);
}

TEST_F(Aggregation, DumpsShowBucketsOfANodeAndNoRubbishOfAKey)
{
    load_buckets("* 0.01\n");
    run({.opcode = 3}, 50 * ms);
    agg_node key = key_of(0, "named");
    for (char* field : {key.program, key.opname, key.fname, key.obj_type}) {
        memset(field, '?', text_bytes); // which nobody has filled in
    }
    set_debug_bits(debug_fine);
    const auto dump = [](const agg_node& shown) {
        return captured_stderr([&] { __ostrum_dump_agg_node(&shown, "EXIT"); });
    };
    EXPECT_THAT(dump(*node(3)), AllOf(HasSubstr("][EXIT]\n"), HasSubstr("  TOTAL           : 0 (main)\n"),
                                      HasSubstr("  TOTAL           : 2 (bucket)\n"),
                                      HasSubstr("  total_tv        : 0.050000000\n")));
    EXPECT_THAT(dump(key), AllOf(HasSubstr("(named)\n"), Not(HasSubstr("??")), Not(HasSubstr("TOTAL"))));
}
