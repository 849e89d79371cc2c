#include "perf_log/aggregation/agg_insert.h"

#include <cstddef>
#include <cstring>

#include "ordered_tree/stored_tree.h"
#include "perf_log/aggregation/node_update.h"
#include "util/diagnostics.h"

using ostrum::agg_node;
using ostrum::call_frame;

namespace {

// The node of a level in the tree that the key belongs to.
agg_node*& node_of_level(call_frame& frame, const agg_node& key)
{
    return key.single_trace != 0 ? frame.single_node : frame.node;
}

// The tree of what the parent calls, made with the first call; it lives in the memory of the root tree.
bt_tree* tree_of_callees(agg_node* parent, const bt_tree* root, int32_t level)
{
    if (parent == nullptr) {
        return nullptr;
    }
    if (parent->sub_opcode_tree == nullptr) {
        parent->sub_opcode_tree = root != nullptr ? ostrum::create_inner_tree(*root) : nullptr;
        if (parent->sub_opcode_tree == nullptr) {
            err_print("insert_agg_node : failed creating new sub-opcode tree for opcode[%d] at level[%d]\n",
                      parent->opcode, level);
        }
    }
    return parent->sub_opcode_tree;
}

// All of the key but the texts, which the node gets copies of from where the key's pointers lead.
void copy_key(agg_node& node, const agg_node& key)
{
    node.opcode = key.opcode;
    node.flags = key.flags;
    node.level = key.level;
    node.pid = key.pid;
    node.tid = key.tid;
    node.lineno = key.lineno;
    constexpr size_t rest = offsetof(agg_node, db_num);
    memcpy(&node.db_num, reinterpret_cast<const char*>(&key) + rest, sizeof(agg_node) - rest);
}

// Records of one hash come in their order as a rule: texts that the nodes hold cut are always behind them,
// and flags and database numbers tend to rise.
bool shares_hash_with_newest(const bt_tree& tree, const agg_node& key)
{
    return tree.newest != nullptr &&
           static_cast<const agg_node*>(tree.newest->data)->hash_code == key.hash_code;
}

// Finds or makes the node of the key's path in its tree, as bt_insert does with agg_upd_fn, but without the
// way through a copy of the whole key.
uint32_t find_or_insert(bt_tree& tree, const agg_node& key, agg_node*& node)
{
    const auto order = [&key](const void* record) { return __ostrum_agg_cmp_fn(&key, record); };
    ostrum::tree_place place;
    ostrum::bt_node* found = shares_hash_with_newest(tree, key) && is_behind_newest(tree, order, place)
                                 ? &ostrum::sentinel
                                 : find_node(tree, order, place);
    uint32_t status = BT_EXISTED;
    if (ostrum::is_empty(found)) {
        found = ostrum::make_node(tree);
        if (found == nullptr) {
            return BT_FAIL;
        }
        ostrum::attach_node(tree, found, place);
        copy_key(*static_cast<agg_node*>(found->data), key);
        status = BT_INSERTED;
    }
    node = static_cast<agg_node*>(found->data);
    const bool accepted = agg_upd_fn(node, &key, status, nullptr) == 1;
    if (node->bucket_def != nullptr) {
        ostrum::keep_release(tree);
    }
    return accepted ? status : static_cast<uint32_t>(BT_FAIL);
}

} // namespace

uint32_t insert_agg_node(bt_tree* root, call_frame* stack, const agg_node* key, int32_t level, agg_node** out)
{
    bt_tree* tree = level == 0 ? root : tree_of_callees(node_of_level(stack[level - 1], *key), root, level);
    agg_node* node = nullptr;
    const uint32_t result =
        tree != nullptr ? find_or_insert(*tree, *key, node) : static_cast<uint32_t>(BT_FAIL);
    if (result != BT_INSERTED && result != BT_EXISTED) {
        err_print("insert_agg_node : failed inserting opcode[%d] level[%d]\n", key->opcode, level);
        return BT_FAIL;
    }
    node_of_level(stack[level], *key) = node;
    if (out != nullptr) {
        *out = node;
    }
    return result;
}
