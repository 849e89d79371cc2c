#include "perf_log/aggregation/call_frame.h"
#include "util/diagnostics.h"

using ostrum::agg_node;
using ostrum::call_frame;

namespace {

// The node of a level in the tree that the key belongs to.
agg_node*& node_of_level(call_frame& frame, const agg_node& key)
{
    return key.single_trace != 0 ? frame.single_node : frame.node;
}

bt_tree* tree_of_callees(agg_node* parent, int32_t level)
{
    if (parent == nullptr) {
        return nullptr;
    }
    if (parent->sub_opcode_tree == nullptr) {
        parent->sub_opcode_tree = ostrum::create_agg_tree();
        if (parent->sub_opcode_tree == nullptr) {
            err_print("insert_agg_node : failed creating new sub-opcode tree for opcode[%d] at level[%d]\n",
                      parent->opcode, level);
        }
    }
    return parent->sub_opcode_tree;
}

} // namespace

uint32_t insert_agg_node(bt_tree* root, call_frame* stack, const agg_node* key, int32_t level, agg_node** out)
{
    bt_tree* tree = level == 0 ? root : tree_of_callees(node_of_level(stack[level - 1], *key), level);
    void* found = nullptr;
    const uint32_t result = bt_insert(tree, key, &found, agg_upd_fn);
    if (result != BT_INSERTED && result != BT_EXISTED) {
        err_print("insert_agg_node : failed inserting opcode[%d] level[%d]\n", key->opcode, level);
        return BT_FAIL;
    }
    auto* node = static_cast<agg_node*>(found);
    node_of_level(stack[level], *key) = node;
    if (out != nullptr) {
        *out = node;
    }
    return result;
}
