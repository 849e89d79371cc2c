// The index of call paths: what it remembers, and that it never takes one path for another.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "perf_log/context/path_index.h"
#include "support/fake_os.h"

using namespace ostrum;

namespace {

class PathIndex : public testing::Test {
protected:
    PathIndex()
    {
        fake_os::reset();
        initialise_path_index(index_);
    }
    ~PathIndex() override
    {
        release_path_index(index_);
        fake_os::reset();
    }

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
    const path_identity others[] = {
        {4, 0, 10, 1, "program", "op", "file.c", "/part"},  {3, 1, 10, 1, "program", "op", "file.c", "/part"},
        {3, 0, 11, 1, "program", "op", "file.c", "/part"},  {3, 0, 10, 2, "program", "op", "file.c", "/part"},
        {3, 0, 10, 1, "programm", "op", "file.c", "/part"}, {3, 0, 10, 1, "program", "o", "file.c", "/part"},
        {3, 0, 10, 1, "program", "op", "file", "/part"},    {3, 0, 10, 1, "program", "op", "file.c", ""}};
    for (const path_identity& other : others) {
        EXPECT_EQ(find(other), nullptr);
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
    constexpr int siblings = 100;
    std::vector<std::string> texts;
    for (int i = 0; i < siblings; ++i) {
        texts.push_back("/typ" + std::to_string(1000 + i)); // they differ in the last bytes of a word
    }
    for (const char* path_identity::*text :
         {&path_identity::obj_type, &path_identity::fname, &path_identity::program, &path_identity::opname}) {
        nodes_.clear();
        ++place_.generation;
        path_identity path = known;
        for (int round = 0; round < 2; ++round) {
            int found = 0;
            for (int i = 0; i < siblings; ++i) {
                path.*text = texts[static_cast<size_t>(i)].c_str();
                agg_node* node = find(path);
                if (node == nullptr) {
                    store(path);
                } else {
                    EXPECT_TRUE(is_same_path(path, *node));
                    ++found;
                }
            }
            EXPECT_GE(found, round == 0 ? 0 : siblings * 7 / 10);
        }
    }
}

TEST_F(PathIndex, ABurstOfPathsDoesNotKeepItLarge)
{
    const auto store_some = [this](int count) {
        for (int i = 0; i < count; ++i) {
            store({i + 1, 0, 10, 1, "program", "op", "file.c", "/part"});
        }
    };
    store_some(5'000);
    EXPECT_GT(index_.mask, 5'000U);
    for (const uint32_t generation : {2U, 3U}) {
        nodes_.clear();
        place_.generation = generation;
        store_some(20);
    }
    EXPECT_EQ(index_.entries, index_.first);
    EXPECT_EQ(find({20, 0, 10, 1, "program", "op", "file.c", "/part"}), nodes_.back().get());
    EXPECT_EQ(find({21, 0, 10, 1, "program", "op", "file.c", "/part"}), nullptr);
}

TEST_F(PathIndex, GrowsWithThePathsAndDoesWithoutMemory)
{
    constexpr int paths = 5'000;
    const auto path = [](int i) {
        return path_identity{i + 1, 0, 10, 1, "program", "op", "file.c", "/part"};
    };
    const auto remembered = [&](int count) {
        int found = 0;
        for (int i = 0; i < count; ++i) {
            agg_node* node = find(path(i));
            EXPECT_TRUE(node == nullptr || node == nodes_[static_cast<size_t>(i)].get());
            found += node != nullptr ? 1 : 0;
        }
        return found;
    };
    for (int i = 0; i < paths; ++i) {
        store(path(i));
    }
    EXPECT_GT(remembered(paths), paths * 95 / 100);

    release_path_index(index_);
    EXPECT_EQ(remembered(paths), 0);
    nodes_.clear();
    fake_os::fail(fake_os::call::allocate, 1, ENOMEM, true);
    for (int i = 0; i < paths; ++i) {
        store(path(i));
    }
    EXPECT_GT(remembered(paths), 0);
    EXPECT_LE(remembered(paths), static_cast<int>(first_path_entries));
}
