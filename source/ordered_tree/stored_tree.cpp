#include "ordered_tree/stored_tree.h"

#include "os/os_calls.h"

#include <utility>

namespace ostrum {

bt_tree* create_stored_tree(int32_t record_size, int32_t (*compare)(const void*, const void*),
                            void (*release)(void*))
{
    auto* store = static_cast<tree_store*>(os::allocate_zeroed(sizeof(tree_store)));
    if (store == nullptr) {
        return nullptr;
    }
    store->outermost = {&sentinel, 0, record_size, 0, compare, release, store, nullptr};
    store->nodes.slot_bytes = sizeof(stored_node);
    store->records.slot_bytes = static_cast<size_t>(record_size);
    store->trees.slot_bytes = sizeof(bt_tree);
    return &store->outermost;
}

bt_tree* create_inner_tree(const bt_tree& tree)
{
    if (tree.store == nullptr) {
        return bt_create(tree.record_size, tree.compare, tree.release);
    }
    auto* inner = static_cast<bt_tree*>(take_slot(tree.store->trees));
    if (inner != nullptr) {
        *inner = {&sentinel, 0, tree.record_size, 0, tree.compare, tree.release, tree.store, nullptr};
    }
    return inner;
}

bt_node* take_node(tree_store& store)
{
    auto* node = static_cast<stored_node*>(take_slot(store.nodes));
    if (node == nullptr) {
        return nullptr;
    }
    node->data = take_slot(store.records);
    if (node->data == nullptr) {
        put_back_last(store.nodes);
        return nullptr;
    }
    return node;
}

// A node that becomes the first hangs to the left of the one that was.
void chain_node(bt_node* node, const tree_place& place)
{
    bt_node*& next = static_cast<stored_node*>(node)->next;
    next = place.parent;
    if (place.before != nullptr) {
        next = std::exchange(static_cast<stored_node*>(place.before)->next, node);
    }
}

void empty_stored_tree(bt_tree& tree)
{
    tree_store& store = *tree.store;
    tree.root = &sentinel;
    tree.newest = nullptr;
    if (&tree != &store.outermost) {
        return;
    }
    if (store.keeps_release) {
        for_each_slot(store.records, tree.release);
        store.keeps_release = false;
    }
    empty_pool(store.nodes);
    empty_pool(store.records);
    empty_pool(store.trees);
}

void give_back_memory(bt_tree& tree)
{
    if (tree.store != nullptr && &tree == &tree.store->outermost && is_empty(tree.root)) {
        empty_stored_tree(tree); // what has not been used since the last time
    }
}

void destroy_stored_tree(bt_tree& tree)
{
    empty_stored_tree(tree);
    tree_store& store = *tree.store;
    if (&tree == &store.outermost) {
        release_pool(store.nodes);
        release_pool(store.records);
        release_pool(store.trees);
        os::release(&store);
    }
}

} // namespace ostrum
