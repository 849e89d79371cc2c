#ifndef OSTRUM_ORDERED_TREE_STORED_TREE_H
#define OSTRUM_ORDERED_TREE_STORED_TREE_H
// Trees that are filled, read and emptied as a whole, with trees below their records: all of it in the
// memory of the outermost one, an arena, the nodes chained in their order. Nodes and records lie apart: the
// way through the nodes of even a large tree touches little memory.
//
// bt_* works on them as on others, with these differences:
//   - bt_delete() refuses (BT_ERROR)
//   - the release function is called for the records of all trees when the outermost one is emptied or
//     destroyed, and only if keep_release() was called since; it releases what a record owns outside this
//     memory
//   - emptying or destroying an inner tree cuts its records off; their memory serves again when the outermost
//     tree has been emptied
//   - emptying releases no memory node by node: what the tree has filled stays with it
#include "ordered_tree/ordered_tree.h"
#include "ordered_tree/slot_pool.h"

namespace ostrum {

struct stored_node : bt_node {
    bt_node* next; // in the order of the tree; null behind the last
};

struct tree_store {
    bt_tree outermost;
    slot_pool nodes;
    slot_pool records;
    slot_pool trees;    // inner ones
    bool keeps_release; // some record may own memory outside
};

// An outermost tree, for bt_destroy(); null when memory is short. The record size is a multiple of 8.
bt_tree* create_stored_tree(int32_t record_size, int32_t (*compare)(const void* key, const void* record),
                            void (*release)(void* record));

// A tree for what belongs to one of this tree's records: of the same kind, and in the same memory where that
// is the tree's own. Null when memory is short.
bt_tree* create_inner_tree(const bt_tree& tree);

// The memory that an outermost tree has kept from before it was emptied, for the heap. Nothing for other
// trees, nor while it holds a record.
void give_back_memory(bt_tree& tree);

// To be called for a tree before one of its records is given something to release; bt_insert() does so
// itself.
inline void keep_release(const bt_tree& tree)
{
    if (tree.store != nullptr) {
        tree.store->keeps_release = true;
    }
}

inline bt_node* first_in_order(const bt_tree& tree)
{
    return is_empty(tree.root) ? nullptr : leftmost(tree.root);
}

// The node behind this one in any tree; null behind the last.
inline bt_node* next_in_order(const bt_tree& tree, bt_node* node)
{
    if (tree.store != nullptr) {
        return static_cast<stored_node*>(node)->next;
    }
    if (!is_empty(node->right)) {
        return leftmost(node->right);
    }
    while (node->parent != nullptr && node->parent->right == node) {
        node = node->parent;
    }
    return node->parent;
}

// Whether a record belongs right behind the newest one of a tree with a store, and its place then. Records
// that come in their order hang in one long row; looked for from the root, each takes longer than the last.
template <typename Order>
bool is_behind_newest(const bt_tree& tree, Order order, tree_place& place)
{
    bt_node* newest = tree.newest;
    if (newest == nullptr || order(newest->data) <= 0) {
        return false;
    }
    bt_node* next = next_in_order(tree, newest);
    if (next != nullptr && order(next->data) >= 0) {
        return false;
    }
    // Without anything on its right the next one is above it; else it is the first below on that side.
    place = is_empty(newest->right) ? tree_place{newest, false, newest} : tree_place{next, true, newest};
    return true;
}

} // namespace ostrum
#endif
