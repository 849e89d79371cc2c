#ifndef OSTRUM_ORDERED_TREE_ORDERED_TREE_H
#define OSTRUM_ORDERED_TREE_ORDERED_TREE_H
// The records behind the bt_* calls of ostrum_util.h, where their contracts stand.
//
// The parent links let every walk and every release go up as well as down, so that none of them needs
// stack by the height of the tree: keys that arrive in order make it as high as it has records.
#include "ostrum_util.h"

namespace ostrum {

struct tree_store;

struct bt_node {
    bt_node* left;         // smaller records, or the sentinel
    bt_node* right;        // equal and greater records, or the sentinel
    bt_node* parent;       // null at the root
    void* data;            // owned copy of the record
    int32_t filter_answer; // of the filtered walk under way: asked once, needed again on the way back up
};

// Stands for every empty subtree of every tree. Never written, so that trees of different threads have
// nothing in common.
extern bt_node sentinel;

inline bool is_empty(const bt_node* subtree)
{
    return subtree == &sentinel;
}

inline bt_node* leftmost(bt_node* subtree)
{
    while (!is_empty(subtree->left)) {
        subtree = subtree->left;
    }
    return subtree;
}

} // namespace ostrum

struct bt_tree {
    ostrum::bt_node* root; // the sentinel when the tree is empty
    uint32_t count;        // inserted and not deleted singly
    int32_t record_size;   // bytes copied from a key
    int32_t depth;         // greatest depth that walks have met since bt_depth() last cleared it
    int32_t (*compare)(const void* key, const void* record);
    void (*release)(void* record);
    ostrum::tree_store* store; // where its nodes are; null = every node and every record is a heap block
    ostrum::bt_node* newest;   // attached last; only with a store, null while the tree is empty
};

namespace ostrum {

// Where a record that a tree does not hold would hang.
struct tree_place {
    bt_node* parent; // null: at the root
    bool left;
    bt_node* before; // the node before it in the order; null: it would be the first
};

// The node whose record the order finds equal (0), or the sentinel and the place for a new one. The order is
// asked once a level: below 0 is on the left of the record, above 0 on its right.
template <typename Order>
bt_node* find_node(const bt_tree& tree, Order order, tree_place& place)
{
    bt_node* node = tree.root;
    place = {nullptr, false, nullptr};
    while (!is_empty(node)) {
        const int32_t side = order(node->data);
        if (side == 0) {
            break;
        }
        place = {node, side < 0, side < 0 ? place.before : node};
        node = side < 0 ? node->left : node->right;
    }
    return node;
}

// A node for a record of the tree's size, which is rubbish as yet; null when memory is short.
bt_node* make_node(const bt_tree& tree);
void attach_node(bt_tree& tree, bt_node* node, const tree_place& place);

// The memory of a tree that has a store.
bt_node* take_node(tree_store& store); // null when memory is short
void chain_node(bt_node* node, const tree_place& place);
void empty_stored_tree(bt_tree& tree);
void destroy_stored_tree(bt_tree& tree);

} // namespace ostrum

#endif
