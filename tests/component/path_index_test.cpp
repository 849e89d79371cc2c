// The index of call paths: what it remembers, and that it never takes one path for another.
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "perf_log/context/path_index.h"
#include "support/fake_os_fixture.h"

using namespace ostrum;

namespace {

class PathIndex : public fake_os_fixture {
protected:
    PathIndex() { initialise_path_index(index_); }
    ~PathIndex() override { release_path_index(index_); }

    agg_node* store(const path_identity& path)
    {
        auto node = std::make_unique<agg_node>();
        node->opcode = path.opcode;
        node->flags = path.flags;
        node->lineno = path.lineno;
        node->db_num = path.db_num;
        strncpy(node->program, path.program, text_bytes - 1);
        strncpy(node->opname, path.opname, text_bytes - 1);
        strncpy(node->fname, path.fname, text_bytes - 1);
        strncpy(node->obj_type, path.obj_type, text_bytes - 1);
        nodes_.push_back(std::move(node));
        remember_path(index_, place_, path, nodes_.back().get());
        return nodes_.back().get();
    }
    agg_node* find(const path_identity& path) { return find_path(index_, place_, path); }

    void store_some(int count)
    {
        nodes_.clear();
        for (int i = 0; i < count; ++i) {
            store(numbered(i));
        }
    }
    // Of the paths stored so; none is taken for another.
    int remembered(int count)
    {
        int found = 0;
        for (int i = 0; i < count; ++i) {
            const agg_node* node = find(numbered(i));
            EXPECT_TRUE(node == nullptr || node == nodes_[static_cast<size_t>(i)].get());
            found += node != nullptr ? 1 : 0;
        }
        return found;
    }
    static path_identity numbered(int i) { return {i + 1, 0, 10, 1, "program", "op", "file.c", "/part"}; }

    bt_tree* const some_tree_ = reinterpret_cast<bt_tree*>(0x1000);
    path_place place_{some_tree_, 1};
    path_index index_{};
    std::vector<std::unique_ptr<agg_node>> nodes_;
};

const path_identity known{3, 0, 10, 1, "program", "op", "file.c", "/part"};

} // namespace

TEST_F(PathIndex, EveryPartOfAPathCounts)
{
    agg_node* node = store(known);
    EXPECT_EQ(find(known), node);
    std::vector<path_identity> others(8, known);
    others[0].opcode = 4;
    others[1].flags = 1;
    others[2].lineno = 11;
    others[3].db_num = 2;
    others[4].program = "programm";
    others[5].opname = "o";
    others[6].fname = "file";
    others[7].obj_type = "";
    for (const path_identity& other : others) {
        EXPECT_EQ(find(other), nullptr) << &other - others.data();
    }
    place_.tree = reinterpret_cast<bt_tree*>(0x2000);
    EXPECT_EQ(find(known), nullptr) << "another caller";
    place_ = {some_tree_, 2};
    EXPECT_EQ(find(known), nullptr) << "the tree has been emptied since";
}

TEST_F(PathIndex, ABufferThatACallerUsesAgainIsReadAgain)
{
    char name[16] = "first";
    const path_identity path{0, 0, 0, 0, "", name, "", ""};
    agg_node* first = store(path);
    EXPECT_EQ(find(path), first);
    strcpy(name, "second");
    EXPECT_EQ(find(path), nullptr);
    agg_node* second = store(path);
    EXPECT_EQ(find(path), second);
    const std::string longer(200, 'x');
    const path_identity cut{7, 0, 0, 0, "", longer.c_str(), "", ""};
    store(cut);
    EXPECT_EQ(find(cut), nullptr) << "the node holds a part of the name only";
}

// Paths of one line that differ in a text: what tells them apart is not in the mark.
TEST_F(PathIndex, RemembersSiblingsThatDifferInOneText)
{
    std::vector<std::string> texts; // each with an address of its own
    for (int i = 1000; i < 1100; ++i) {
        texts.push_back("/typ" + std::to_string(i)); // they differ in the last bytes of a word
    }
    for (const char* path_identity::*text :
         {&path_identity::obj_type, &path_identity::fname, &path_identity::program, &path_identity::opname}) {
        ++place_.generation;
        path_identity path = known;
        size_t found = 0;
        for (size_t i = 0; i < 2 * texts.size(); ++i) { // looked for again when all are stored
            path.*text = texts[i % texts.size()].c_str();
            const agg_node* node = find(path);
            if (node == nullptr) {
                store(path);
                continue;
            }
            EXPECT_TRUE(is_same_path(path, *node));
            found += i < texts.size() ? 0U : 1U;
        }
        EXPECT_GE(found, texts.size() * 7 / 10);
    }
}

TEST_F(PathIndex, GrowsWithThePathsShrinksBehindABurstAndDoesWithoutMemory)
{
    constexpr int paths = 5'000;
    store_some(paths);
    EXPECT_GT(index_.mask, static_cast<uint32_t>(paths));
    EXPECT_GT(remembered(paths), paths * 95 / 100);
    for (const uint32_t generation : {2U, 3U}) {
        place_.generation = generation;
        store_some(20);
    }
    EXPECT_EQ(index_.entries, index_.first);
    EXPECT_EQ(find(numbered(19)), nodes_.back().get());
    EXPECT_EQ(find(numbered(20)), nullptr);

    release_path_index(index_);
    EXPECT_EQ(remembered(20), 0);
    fake_os::fail(fake_os::call::allocate, 1, ENOMEM, true);
    store_some(paths);
    EXPECT_GT(remembered(paths), 0);
    EXPECT_LE(remembered(paths), static_cast<int>(first_path_entries));
}

// Otherwise those that meet in full places would search their tree at each call, for ever.
TEST_F(PathIndex, AFewPathsSoonStandSideBySideWhereverTheyHash)
{
    std::minstd_rand any;
    for (int round = 0; round < 300; ++round) {
        release_path_index(index_);
        nodes_.clear();
        std::vector<path_identity> paths(24, known);
        for (path_identity& path : paths) {
            path.opcode = static_cast<int32_t>(any() % 1'000'000 + 1);
            store(path);
        }
        size_t found = 0;
        for (int look = 0; found < paths.size() && look < 10; ++look) {
            found = 0;
            for (size_t i = 0; i < paths.size(); ++i) {
                if (find(paths[i]) != nullptr) {
                    ++found;
                } else {
                    remember_path(index_, place_, paths[i], nodes_[i].get());
                }
            }
        }
        EXPECT_EQ(found, paths.size()) << round;
    }
}
