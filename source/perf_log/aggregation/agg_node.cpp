#include "perf_log/aggregation/agg_node.h"

#include <cstring>

#include "ordered_tree/stored_tree.h"
#include "util/diagnostics.h"
#include "util/resources.h"

using ostrum::agg_node;
using ostrum::total_record;

namespace {

// 64-bit FNV-1, multiply first.
constexpr uint64_t fnv_prime = 0x100000001b3;
constexpr uint64_t fnv_offset_basis = 0xcbf29ce484222325;

uint64_t hash_byte(uint64_t hash, unsigned char byte)
{
    return (hash * fnv_prime) ^ byte;
}

uint64_t hash_number(uint64_t hash, int32_t number)
{
    auto bits = static_cast<uint32_t>(number);
    for (size_t i = 0; i < sizeof(bits); ++i, bits >>= 8) { // memory order: little-endian
        hash = hash_byte(hash, static_cast<unsigned char>(bits & 0xFF));
    }
    return hash;
}

uint64_t hash_text(uint64_t hash, const char* text)
{
    for (; text != nullptr && *text != '\0'; ++text) {
        hash = hash_byte(hash, static_cast<unsigned char>(*text));
    }
    return hash;
}

template <typename T>
int32_t compare_numbers(T key, T node)
{
    return key == node ? 0 : (key > node ? 1 : -1);
}

// A key carries pointers only and a stored node buffers only: each side shows whichever it has.
const char* text_of(const char* pointer, const char* buffer)
{
    return pointer != nullptr ? pointer : buffer;
}

int32_t compare_texts(const agg_node& key, const agg_node& node)
{
    int result = strcmp(text_of(key.ptr_opname, key.opname), text_of(node.ptr_opname, node.opname));
    if (result == 0) {
        result = strcmp(text_of(key.ptr_program, key.program), text_of(node.ptr_program, node.program));
    }
    if (result == 0) {
        result = strcmp(text_of(key.ptr_fname, key.fname), text_of(node.ptr_fname, node.fname));
    }
    if (result == 0) {
        result = strcmp(text_of(key.ptr_obj_type, key.obj_type), text_of(node.ptr_obj_type, node.obj_type));
    }
    return result;
}

// What a node owns outside its tree's memory.
void release_buckets(void* record)
{
    auto* node = static_cast<agg_node*>(record);
    while (total_record* bucket = node->main.next) {
        node->main.next = bucket->next;
        ostrum::os::release(bucket);
    }
}

} // namespace

bt_tree* ostrum::create_agg_tree()
{
    return create_stored_tree(sizeof(agg_node), __ostrum_agg_cmp_fn, release_buckets);
}

uint64_t ostrum_hash_aggr_node(const agg_node* key)
{
    uint64_t hash = fnv_offset_basis;
    hash = key->opcode >= 1 ? hash_number(hash, key->opcode) : hash_text(hash, key->ptr_opname);
    if (key->lineno != 0) {
        hash = hash_number(hash, key->lineno);
    }
    hash = hash_text(hash, key->ptr_fname);
    return hash_text(hash, key->ptr_obj_type);
}

// Hash first, so that equal paths are found without string work in the common case.
int32_t __ostrum_agg_cmp_fn(const void* key_record, const void* node_record)
{
    const agg_node& key = *static_cast<const agg_node*>(key_record);
    const agg_node& node = *static_cast<const agg_node*>(node_record);
    if (key.hash_code != node.hash_code) {
        return key.hash_code > node.hash_code ? 1 : -1;
    }
    int32_t result = compare_numbers(key.opcode, node.opcode);
    if (result == 0) {
        result = compare_numbers(key.flags, node.flags);
    }
    if (result == 0) {
        result = compare_numbers(key.lineno, node.lineno);
    }
    if (result == 0) {
        result = compare_numbers(key.db_num, node.db_num);
    }
    if (result == 0) {
        result = compare_numbers(key.bucket_id, node.bucket_id);
    }
    if (result != 0 || key.bucket_id > 0) {
        return result;
    }
    return compare_texts(key, node);
}

void __ostrum_agg_free_fn(void* record)
{
    auto* node = static_cast<agg_node*>(record);
    if (node == nullptr) {
        return;
    }
    if (node->sub_opcode_tree != nullptr && bt_destroy(node->sub_opcode_tree) != BT_EMPTIED) {
        err_print("__ostrum_agg_free_fn : error destroying sub-tree\n");
        return;
    }
    release_buckets(node);
    ostrum::os::release(node);
}
