#include "ordered_tree/ordered_tree.h"

using ostrum::bt_node;
using ostrum::is_empty;

namespace {

// One walk under way: where it stands and what it was given.
struct walk_state {
    bt_tree& tree;
    bt_node* node;
    int32_t depth; // of node; the root has 1
    void* visit_arg;
    int32_t (*visit)(void* record, void* arg, int32_t depth);
    int32_t (*filter)(void* record, void* arg, int32_t depth);
    void* filter_arg;
};

int32_t filter_answer(const walk_state& walk)
{
    return walk.filter != nullptr ? walk.node->filter_answer : static_cast<int32_t>(BT_FILTER_ALL);
}

void step_down(walk_state& walk, bt_node* child)
{
    walk.node = child;
    ++walk.depth;
}

// From a node just reached down to the first whose left subtree is empty or left out.
void go_left(walk_state& walk)
{
    for (;;) {
        bt_node* node = walk.node;
        if (walk.filter != nullptr) {
            node->filter_answer = walk.filter(node->data, walk.filter_arg, walk.depth);
        }
        if (is_empty(node->left) || filter_answer(walk) == BT_FILTER_RIGHT_ONLY) {
            return;
        }
        step_down(walk, node->left);
    }
}

// Up to the nearest node whose left subtree is now done; false at the end of the walk.
bool go_up(walk_state& walk)
{
    const bt_node* child = nullptr;
    do {
        child = walk.node;
        walk.node = child->parent;
        --walk.depth;
    } while (walk.node != nullptr && walk.node->left != child);
    return walk.node != nullptr;
}

// On to the next node whose left subtree is done; false at the end of the walk.
bool go_on(walk_state& walk)
{
    if (is_empty(walk.node->right) || filter_answer(walk) == BT_FILTER_LEFT_ONLY) {
        return go_up(walk);
    }
    step_down(walk, walk.node->right);
    go_left(walk);
    return true;
}

bool visit_node(const walk_state& walk)
{
    if (walk.tree.depth < walk.depth) {
        walk.tree.depth = walk.depth;
    }
    return walk.visit == nullptr || walk.visit(walk.node->data, walk.visit_arg, walk.depth) == BT_CONTINUE;
}

} // namespace

uint32_t bt_walk_filtered(bt_tree* tree, void* arg, int32_t (*visit)(void*, void*, int32_t),
                          int32_t (*filter)(void*, void*, int32_t), void* filter_arg)
{
    if (tree == nullptr) {
        return BT_FAIL;
    }
    if (is_empty(tree->root)) {
        return BT_CONTINUE;
    }
    walk_state walk{*tree, tree->root, 1, arg, visit, filter, filter_arg};
    go_left(walk);
    do {
        if (filter_answer(walk) == BT_FILTER_ALL && !visit_node(walk)) {
            return BT_FAIL;
        }
    } while (go_on(walk));
    return BT_CONTINUE;
}

uint32_t bt_walk(bt_tree* tree, void* arg, int32_t (*visit)(void*, void*, int32_t))
{
    return bt_walk_filtered(tree, arg, visit, nullptr, nullptr);
}

int32_t bt_depth(bt_tree* tree)
{
    if (tree == nullptr) {
        return 0;
    }
    tree->depth = 0;
    bt_walk(tree, nullptr, nullptr);
    return tree->depth;
}
