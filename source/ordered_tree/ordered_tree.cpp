#include "ordered_tree/stored_tree.h"

#include "os/os_calls.h"

#include <cstring>

using namespace ostrum;

bt_node ostrum::sentinel = {&sentinel, &sentinel, nullptr, nullptr, 0};

namespace {

bt_node* find(const bt_tree& tree, const void* key, tree_place& place)
{
    return find_node(
        tree, [&tree, key](const void* record) { return tree.compare(key, record); }, place);
}

bt_node* heap_node(size_t record_bytes)
{
    auto* node = static_cast<bt_node*>(os::allocate_zeroed(sizeof(bt_node)));
    if (node == nullptr) {
        return nullptr;
    }
    node->data = os::allocate_zeroed(record_bytes);
    if (node->data == nullptr) {
        os::release(node);
        return nullptr;
    }
    return node;
}

// Null when memory is short, or when there is no key to copy or no size that can be.
bt_node* make_copy(const bt_tree& tree, const void* key)
{
    if (tree.record_size < 0 || (key == nullptr && tree.record_size > 0)) {
        return nullptr;
    }
    keep_release(tree);
    bt_node* node = make_node(tree);
    if (node != nullptr && tree.record_size > 0) {
        memcpy(node->data, key, static_cast<size_t>(tree.record_size));
    }
    return node;
}

// Compares once more instead of keeping the side from the descent: callers count on one call a level and
// one to attach, and a comparison that never answers 0 still decides the side here.
void attach(bt_tree& tree, bt_node* node, tree_place place, const void* key)
{
    place.left = place.parent != nullptr && tree.compare(key, place.parent->data) < 0;
    attach_node(tree, node, place);
}

// Puts the child, possibly the sentinel, where the node hangs.
void replace_by(bt_tree& tree, const bt_node* node, bt_node* child)
{
    if (!is_empty(child)) {
        child->parent = node->parent;
    }
    if (node->parent == nullptr) {
        tree.root = child;
    } else if (node->parent->left == node) {
        node->parent->left = child;
    } else {
        node->parent->right = child;
    }
}

void delete_node(bt_tree& tree, bt_node* found)
{
    const bool has_both = !is_empty(found->left) && !is_empty(found->right);
    bt_node* unlinked = has_both ? leftmost(found->right) : found;
    replace_by(tree, unlinked, is_empty(unlinked->left) ? unlinked->right : unlinked->left);
    tree.release(found->data);
    if (unlinked != found) {
        found->data = unlinked->data;
    }
    os::release(unlinked);
}

// Releases the subtree in key order, without stack: a node that goes leaves its right subtree to its
// parent, which is what comes next once that subtree is gone.
void release_in_order(const bt_tree& tree, bt_node* subtree)
{
    if (is_empty(subtree)) {
        return;
    }
    subtree->parent = nullptr;
    bt_node* node = leftmost(subtree);
    while (node != nullptr) {
        bt_node* next = node->parent;
        if (!is_empty(node->right)) {
            node->right->parent = node->parent;
            next = leftmost(node->right);
        }
        tree.release(node->data);
        os::release(node);
        node = next;
    }
}

// The order in which deleting the root again and again releases the records: as long as there is a left
// subtree the successor moves up, so the right one goes first, in key order. Done as one pass, since
// looking for each successor anew takes quadratic time in some trees.
void release_root_first(bt_tree& tree)
{
    bt_node* node = tree.root;
    tree.root = &sentinel;
    while (!is_empty(node)) {
        bt_node* rest = is_empty(node->left) ? node->right : node->left;
        tree.release(node->data);
        if (!is_empty(node->left)) {
            release_in_order(tree, node->right);
        }
        os::release(node);
        node = rest;
    }
}

} // namespace

bt_node* ostrum::make_node(const bt_tree& tree)
{
    return tree.store != nullptr ? take_node(*tree.store) : heap_node(static_cast<size_t>(tree.record_size));
}

void ostrum::attach_node(bt_tree& tree, bt_node* node, const tree_place& place)
{
    node->left = &sentinel;
    node->right = &sentinel;
    node->parent = place.parent;
    (place.parent == nullptr ? tree.root : place.left ? place.parent->left : place.parent->right) = node;
    ++tree.count;
    if (tree.store != nullptr) {
        chain_node(node, place);
        tree.newest = node;
    }
}

bt_tree* bt_create(int32_t record_size, int32_t (*compare)(const void*, const void*), void (*release)(void*))
{
    auto* tree = static_cast<bt_tree*>(os::allocate_zeroed(sizeof(bt_tree)));
    if (tree == nullptr) {
        return nullptr;
    }
    tree->root = &sentinel;
    tree->record_size = record_size;
    tree->compare = compare != nullptr ? compare : bt_gt;
    tree->release = release != nullptr ? release : os::release;
    return tree;
}

uint32_t bt_insert(bt_tree* tree, const void* key, void** out,
                   int32_t (*update)(void*, const void*, uint32_t, void**))
{
    if (tree == nullptr) {
        return BT_FAIL;
    }
    tree_place place;
    bt_node* node = find(*tree, key, place);
    uint32_t status = BT_EXISTED;
    if (is_empty(node)) {
        node = make_copy(*tree, key);
        if (node == nullptr) {
            return BT_FAIL;
        }
        attach(*tree, node, place, key);
        status = BT_INSERTED;
    }
    const bool accepted = update == nullptr || update(node->data, key, status, out) == BT_CONTINUE;
    return accepted ? status : static_cast<uint32_t>(BT_FAIL);
}

void* bt_search(bt_tree* tree, const void* key)
{
    tree_place place;
    return tree != nullptr ? find(*tree, key, place)->data : nullptr;
}

uint32_t bt_delete(bt_tree* tree, const void* key)
{
    if (tree != nullptr && tree->store != nullptr) {
        return BT_ERROR;
    }
    tree_place place;
    bt_node* found = tree != nullptr ? find(*tree, key, place) : &sentinel;
    if (is_empty(found)) {
        return BT_NOT_FOUND;
    }
    delete_node(*tree, found);
    --tree->count;
    return BT_DELETED;
}

uint32_t bt_empty(bt_tree* tree)
{
    if (tree == nullptr) {
        return BT_ERROR;
    }
    if (tree->store != nullptr) { // kept: the count stays, callers rely on it
        empty_stored_tree(*tree);
    } else {
        release_root_first(*tree);
    }
    return BT_EMPTIED;
}

uint32_t bt_destroy(bt_tree* tree)
{
    if (tree != nullptr && tree->store != nullptr) {
        destroy_stored_tree(*tree);
        return BT_EMPTIED;
    }
    const uint32_t result = bt_empty(tree);
    os::release(tree);
    return result;
}

uint32_t bt_count(const bt_tree* tree)
{
    return tree != nullptr ? tree->count : 0;
}

int32_t bt_eq(const void* /*key*/, const void* /*record*/)
{
    return 0;
}

int32_t bt_gt(const void* /*key*/, const void* /*record*/)
{
    return 1;
}

int32_t bt_lt(const void* /*key*/, const void* /*record*/)
{
    return -1;
}
