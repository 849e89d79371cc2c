#include "ordered_tree/stored_tree.h"
#include "support/fake_os.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace {

using fake_os::call;
using ostrum::bt_node;

std::vector<int> released; // records given to release_noting, in order

int32_t compare_int(const void* key, const void* record)
{
    const int a = *static_cast<const int*>(key);
    const int b = *static_cast<const int*>(record);
    return (a > b) - (a < b);
}

void release_noting(void* record)
{
    released.push_back(*static_cast<int*>(record));
    free(record);
}

using tree_ptr = std::unique_ptr<bt_tree, uint32_t (*)(bt_tree*)>;

tree_ptr make_tree(const std::vector<int>& keys, void (*release)(void*) = nullptr)
{
    tree_ptr tree{bt_create(sizeof(int), compare_int, release), bt_destroy};
    for (const int key : keys) {
        bt_insert(tree.get(), &key, nullptr, nullptr);
    }
    return tree;
}

std::vector<int> random_keys(unsigned seed, int count)
{
    std::vector<int> keys(static_cast<size_t>(count));
    std::iota(keys.begin(), keys.end(), 0);
    std::shuffle(keys.begin(), keys.end(), std::mt19937(seed));
    return keys;
}

// One event of a walk: the filter asked, or the record visited.
struct event {
    char what;
    int record;
    int32_t depth;
    bool operator==(const event&) const = default;
};
struct journal {
    std::vector<event> events;
    std::function<int32_t(int)> answer = [](int) { return BT_FILTER_ALL; };
    int stop_at = -1;
};

int32_t note_visit(void* record, void* arg, int32_t depth)
{
    auto* notes = static_cast<journal*>(arg);
    notes->events.push_back({'v', *static_cast<int*>(record), depth});
    return *static_cast<int*>(record) == notes->stop_at ? BT_FAIL : BT_CONTINUE;
}

int32_t note_filter(void* record, void* arg, int32_t depth)
{
    auto* notes = static_cast<journal*>(arg);
    notes->events.push_back({'f', *static_cast<int*>(record), depth});
    return notes->answer(*static_cast<int*>(record));
}

std::vector<int> records_of(bt_tree* tree)
{
    journal notes;
    EXPECT_EQ(bt_walk(tree, &notes, note_visit), BT_CONTINUE);
    std::vector<int> records;
    for (const event& e : notes.events) {
        records.push_back(e.record);
    }
    return records;
}

// The filtered walk as it is defined, by recursion.
uint32_t walk_by_definition(const bt_node* node, journal& notes, int32_t depth)
{
    if (ostrum::is_empty(node)) {
        return BT_CONTINUE;
    }
    const int32_t answer = note_filter(node->data, &notes, depth);
    if (answer != BT_FILTER_RIGHT_ONLY) {
        if (walk_by_definition(node->left, notes, depth + 1) != BT_CONTINUE) {
            return BT_FAIL;
        }
        if (answer == BT_FILTER_LEFT_ONLY) {
            return BT_CONTINUE;
        }
        if (answer == BT_FILTER_ALL && note_visit(node->data, &notes, depth) != BT_CONTINUE) {
            return BT_FAIL;
        }
    }
    return walk_by_definition(node->right, notes, depth + 1);
}

int32_t count_update(void* /*record*/, const void* key, uint32_t status, void** out)
{
    *static_cast<uint32_t*>(*out) = status;
    return *static_cast<const int*>(key) < 100 ? BT_CONTINUE : BT_FAIL;
}

TEST(OrderedTree, InsertTellsNewFromExisting)
{
    const tree_ptr tree = make_tree({});
    uint32_t status = 0;
    void* out = &status;
    const struct {
        int key;
        uint32_t result, status, count;
    } steps[] = {{5, BT_INSERTED, BT_INSERTED, 1},
                 {5, BT_EXISTED, BT_EXISTED, 1},
                 {100, BT_FAIL, BT_INSERTED, 2}, // refused, but in the tree
                 {100, BT_FAIL, BT_EXISTED, 2}};
    for (const auto& step : steps) {
        EXPECT_EQ(bt_insert(tree.get(), &step.key, &out, count_update), step.result);
        EXPECT_EQ(status, step.status);
        EXPECT_EQ(bt_count(tree.get()), step.count);
        EXPECT_EQ(*static_cast<int*>(bt_search(tree.get(), &step.key)), step.key);
    }
}

TEST(OrderedTree, NoMemoryLeavesTheTreeAsItWas)
{
    for (const int64_t nth : {1, 2}) {
        fake_os::reset();
        const tree_ptr tree = make_tree({2, 1});
        const int64_t blocks = fake_os::blocks_in_use();
        const int key = 3;
        fake_os::fail(call::allocate, nth, ENOMEM);
        EXPECT_EQ(bt_insert(tree.get(), &key, nullptr, nullptr), BT_FAIL);
        EXPECT_EQ(bt_count(tree.get()), 2U);
        EXPECT_EQ(records_of(tree.get()), (std::vector<int>{1, 2}));
        EXPECT_EQ(fake_os::blocks_in_use(), blocks);
    }
    fake_os::fail(call::allocate, 1, ENOMEM);
    EXPECT_EQ(bt_create(4, nullptr, nullptr), nullptr);
    const tree_ptr oversized{bt_create(-1, nullptr, nullptr), bt_destroy};
    const int key = 1;
    EXPECT_EQ(bt_insert(oversized.get(), &key, nullptr, nullptr), BT_FAIL);
}

TEST(OrderedTree, DeleteKeepsTheOrderOfTheRest)
{
    for (unsigned seed = 0; seed < 20; ++seed) {
        SCOPED_TRACE(seed);
        fake_os::reset();
        tree_ptr tree = make_tree(random_keys(seed, 40));
        std::vector<int> rest = records_of(tree.get());
        for (const int key : random_keys(seed + 1000, 40)) {
            EXPECT_EQ(bt_delete(tree.get(), &key), BT_DELETED);
            EXPECT_EQ(bt_delete(tree.get(), &key), BT_NOT_FOUND);
            rest.erase(std::find(rest.begin(), rest.end(), key));
            ASSERT_EQ(records_of(tree.get()), rest);
            EXPECT_EQ(bt_count(tree.get()), rest.size());
        }
        tree.reset();
        EXPECT_EQ(fake_os::blocks_in_use(), 0);
    }
}

TEST(OrderedTree, FilteredWalkFollowsItsDefinition)
{
    for (unsigned seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE(seed);
        const tree_ptr tree = make_tree(random_keys(seed, 30));
        journal walked;
        walked.answer = [seed](int record) {
            const unsigned answers[] = {0, 0, 0, 1, 2, 3, 77};
            return static_cast<int32_t>(answers[(static_cast<unsigned>(record) * 7919 + seed * 31) % 7]);
        };
        walked.stop_at = seed % 3 == 0 ? 17 : -1;
        journal expected = walked;
        const uint32_t result = walk_by_definition(tree->root, expected, 1);
        EXPECT_EQ(bt_walk_filtered(tree.get(), &walked, note_visit, note_filter, &walked), result);
        EXPECT_EQ(walked.events, expected.events);
    }
}

TEST(OrderedTree, EmptyingReleasesInTheOrderOfDeletingTheRoot)
{
    for (unsigned seed = 0; seed < 50; ++seed) {
        SCOPED_TRACE(seed);
        const tree_ptr by_root = make_tree(random_keys(seed, 30), release_noting);
        by_root->compare = bt_eq;
        released.clear();
        while (bt_delete(by_root.get(), nullptr) == BT_DELETED) {
        }
        const std::vector<int> expected = released;
        ASSERT_EQ(expected.size(), 30U);

        const tree_ptr tree = make_tree(random_keys(seed, 30), release_noting);
        released.clear();
        EXPECT_EQ(bt_empty(tree.get()), BT_EMPTIED);
        EXPECT_EQ(released, expected);
        EXPECT_EQ(bt_count(tree.get()), 30U); // stale, as documented
        EXPECT_EQ(bt_depth(tree.get()), 0);
        EXPECT_EQ(bt_empty(tree.get()), BT_EMPTIED);
    }
}

TEST(OrderedTree, DefaultOrderIsArrival)
{
    const tree_ptr tree{bt_create(sizeof(int), nullptr, nullptr), bt_destroy};
    for (const int key : {3, 1, 3}) {
        EXPECT_EQ(bt_insert(tree.get(), &key, nullptr, nullptr), BT_INSERTED);
        EXPECT_EQ(bt_search(tree.get(), &key), nullptr);
    }
    EXPECT_EQ(records_of(tree.get()), (std::vector<int>{3, 1, 3}));
    EXPECT_EQ(bt_depth(tree.get()), 3);
}

// A subtree of a quarter of a million nodes, each of which has only the next as a child: more than a stack
// holds calls. Built by hand, since inserting them one by one takes quadratic time.
constexpr int chain_length = 250'000;

bt_node* make_chain(bool (*goes_left)(int))
{
    bt_node* top = &ostrum::sentinel;
    for (int key = 0; key < chain_length; ++key) {
        bt_node* node = std::exchange(make_tree({key})->root, &ostrum::sentinel);
        (goes_left(key) ? node->left : node->right) = top;
        if (!ostrum::is_empty(top)) {
            top->parent = node;
        }
        top = node;
    }
    return top;
}

int32_t count_visit(void* /*record*/, void* arg, int32_t /*depth*/)
{
    ++*static_cast<int*>(arg);
    return BT_CONTINUE;
}

TEST(OrderedTree, HighTreesNeedNoStackAndLinearTime)
{
    for (bool (*shape)(int) :
         {+[](int) { return true; }, +[](int) { return false; }, +[](int i) { return i % 2 == 0; }}) {
        fake_os::reset();
        // 0 is the root, -1 its left child: the root keeps two children while the chain is dismantled.
        tree_ptr tree = make_tree({0, -1});
        tree->root->right = make_chain(shape);
        tree->root->right->parent = tree->root;
        int visited = 0;
        EXPECT_EQ(bt_walk(tree.get(), &visited, count_visit), BT_CONTINUE);
        EXPECT_EQ(visited, chain_length + 2);
        EXPECT_EQ(bt_depth(tree.get()), chain_length + 1);
        tree.reset();
        EXPECT_EQ(fake_os::blocks_in_use(), 0);
    }
}

// ---- trees in memory of their own ----

std::vector<int> chained_records_of(const bt_tree& tree)
{
    std::vector<int> records;
    for (bt_node* node = ostrum::first_in_order(tree); node != nullptr;
         node = ostrum::next_in_order(tree, node)) {
        records.push_back(*static_cast<int*>(node->data));
    }
    return records;
}

void note_release(void* record)
{
    released.push_back(*static_cast<int*>(record));
}

// Records of two words, the first of which is compared.
tree_ptr make_stored_tree()
{
    return {ostrum::create_stored_tree(2 * sizeof(int), compare_int, note_release), bt_destroy};
}

void insert_keys(bt_tree* tree, const std::vector<int>& keys)
{
    for (const int key : keys) {
        const int record[2] = {key, -key};
        ASSERT_EQ(bt_insert(tree, record, nullptr, nullptr), BT_INSERTED);
    }
}

TEST(StoredTree, IsChainedInItsOrder)
{
    const int key = 1;
    for (unsigned seed = 0; seed < 20; ++seed) {
        SCOPED_TRACE(seed);
        const std::vector<int> keys = random_keys(seed, static_cast<int>(seed) * 10);
        const tree_ptr stored = make_stored_tree();
        insert_keys(stored.get(), keys);
        EXPECT_EQ(bt_delete(stored.get(), &key), BT_ERROR);
        const tree_ptr plain = make_tree(keys);
        const std::vector<int> expected = records_of(plain.get());
        EXPECT_EQ(chained_records_of(*stored), expected);
        EXPECT_EQ(chained_records_of(*plain), expected) << "without a chain";
        EXPECT_EQ(records_of(stored.get()), expected);
    }
}

TEST(StoredTree, KeepsTheMemoryThatItsLastFillingNeeded)
{
    fake_os::reset();
    tree_ptr tree = make_stored_tree();
    const int64_t bare = fake_os::blocks_in_use();
    const auto fill = [&tree](int count) {
        insert_keys(tree.get(), random_keys(1, count));
        insert_keys(ostrum::create_inner_tree(*tree), random_keys(2, count));
        EXPECT_EQ(bt_empty(tree.get()), BT_EMPTIED);
        return fake_os::blocks_in_use();
    };
    const int64_t full = fill(3000);
    const int64_t made = fake_os::calls_made(call::allocate);
    EXPECT_EQ(fill(3000), full);
    EXPECT_EQ(fake_os::calls_made(call::allocate), made) << "filled again without the heap";
    EXPECT_LT(fill(30), full / 10);
    ostrum::give_back_memory(*tree);
    EXPECT_EQ(fake_os::blocks_in_use(), bare);
    insert_keys(tree.get(), {1});
    const int64_t in_use = fake_os::blocks_in_use();
    ostrum::give_back_memory(*tree);
    EXPECT_EQ(fake_os::blocks_in_use(), in_use) << "nothing of a tree with records";
    tree.reset();
    EXPECT_EQ(fake_os::blocks_in_use(), 0);
}

TEST(StoredTree, ReleasesTheRecordsOfAllItsTreesWhenTheOutermostIsEmptied)
{
    released.clear();
    const tree_ptr tree = make_stored_tree();
    insert_keys(tree.get(), {1, 2});
    bt_tree* inner = ostrum::create_inner_tree(*tree);
    insert_keys(inner, {3});
    EXPECT_EQ(bt_destroy(inner), BT_EMPTIED);
    EXPECT_EQ(released, std::vector<int>{});
    bt_empty(tree.get());
    EXPECT_EQ(released, (std::vector<int>{1, 2, 3}));
    bt_empty(tree.get());
    EXPECT_EQ(released.size(), 3U);
}

TEST(StoredTree, NoMemoryLeavesItAsItWas)
{
    fake_os::reset();
    fake_os::fail(call::allocate, 1, ENOMEM);
    EXPECT_EQ(make_stored_tree(), nullptr);
    for (const int64_t nth : {1, 2}) { // for its nodes, for its records
        const tree_ptr tree = make_stored_tree();
        const int record[2] = {1, 1};
        fake_os::fail(call::allocate, nth, ENOMEM);
        EXPECT_EQ(bt_insert(tree.get(), record, nullptr, nullptr), BT_FAIL);
        EXPECT_EQ(chained_records_of(*tree), std::vector<int>{});
        insert_keys(tree.get(), {2, 1, 3});
        EXPECT_EQ(chained_records_of(*tree), (std::vector<int>{1, 2, 3}));
        fake_os::fail(call::allocate, 1, ENOMEM);
        EXPECT_EQ(ostrum::create_inner_tree(*tree), nullptr);
    }
}

} // namespace
