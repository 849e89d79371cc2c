#ifndef OSTRUM_ORDERED_TREE_ORDERED_TREE_H
#define OSTRUM_ORDERED_TREE_ORDERED_TREE_H
// The records behind the bt_* calls of ostrum_util.h, where their contracts stand.
//
// The parent links let every walk and every release go up as well as down, so that none of them needs
// stack by the height of the tree: keys that arrive in order make it as high as it has records.
#include "ostrum_util.h"

namespace ostrum {

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
};

#endif
