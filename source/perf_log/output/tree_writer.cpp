#include "perf_log/output/tree_writer.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "host_abi/host_opcodes.h"
#include "host_access/opcode_names.h"
#include "ordered_tree/stored_tree.h"
#include "ostrum.h"
#include "perf_log/aggregation/agg_node.h"
#include "perf_log/output/trace_record.h"
#include "process_state/process_state.h"
#include "util/append_file.h"
#include "util/diagnostics.h"
#include "util/text.h"

using namespace ostrum;

namespace {

// The frame's source location is part of the format: readers know the record by it. The file name is
// the same in every build, whatever directory it was made in.
constexpr const char* frame_file = "source/perf_log/output/tree_writer.cpp";
constexpr int32_t frame_start_line = 2240;

void write_frame_start(const print_context& context)
{
    trace_line line{};
    line.opcode = elapsed_opcode;
    line.opname = get_opname(elapsed_opcode, nullptr);
    line.time_tv = context.start_tv;
    line.fname = frame_file;
    line.lineno = frame_start_line;
    line.owner = &context.owner;
    line.program = context.program;
    write_perf(context.out, trace_kind::start, &line);
}

void write_frame_end(const print_context& context)
{
    total_record totals{};
    totals.total_tv = context.end_tv;
    totals.total_calls = 1;
    trace_line line{};
    line.totals = &totals;
    write_perf(context.out, trace_kind::figures, &line);
}

trace_line path_line(const agg_node& node, const print_context& context)
{
    return {.level = node.level + 1,
            .opcode = node.opcode,
            .flags = node.flags,
            .opname = name_of(node.opname, node.opcode),
            .time_tv = 0,
            .fname = node.fname,
            .lineno = node.lineno,
            .owner = &context.owner,
            .program = node.program,
            .bucket = 0,
            .obj_type = node.obj_type,
            .db_num = node.db_num,
            .totals = &node.main};
}

void write_buckets(const agg_node& node, const trace_line& path, append_buffer* out)
{
    trace_line line = path;
    line.level = path.level + 1;
    for (const total_record* bucket = node.main.next; bucket != nullptr; bucket = bucket->next) {
        ++line.bucket;
        line.totals = bucket;
        write_perf(out, trace_kind::start, &line);
        write_perf(out, trace_kind::figures, &line);
    }
}

// Has the processor fetch the parts of a node that are written. Of a text that is its beginning.
void fetch(const agg_node& node)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(&node);
    for (const size_t part :
         {offsetof(agg_node, opcode), offsetof(agg_node, opname), offsetof(agg_node, fname),
          offsetof(agg_node, lineno), offsetof(agg_node, db_num), offsetof(agg_node, main),
          offsetof(agg_node, main) + cache_line_bytes, offsetof(agg_node, sub_opcode_tree)}) {
        __builtin_prefetch(bytes + part);
    }
}

// Goes through a tree in its order. In a large one the nodes come from all over its memory, which takes
// longer than writing them: they are fetched some nodes ahead of the one that is written.
class prefetching_walk {
public:
    explicit prefetching_walk(const bt_tree& tree) : tree_(tree), ahead_(first_in_order(tree))
    {
        for (const agg_node*& node : fetched_) {
            node = fetch_next();
        }
    }
    // Null at the end.
    const agg_node* next()
    {
        const agg_node* node = fetched_[position_];
        fetched_[position_] = fetch_next();
        position_ = (position_ + 1) % distance;
        return node;
    }

private:
    const agg_node* fetch_next()
    {
        if (ahead_ == nullptr) {
            return nullptr;
        }
        const auto* node = static_cast<const agg_node*>(ahead_->data);
        ahead_ = next_in_order(tree_, ahead_);
        __builtin_prefetch(ahead_);
        fetch(*node);
        return node;
    }

    static constexpr size_t distance = 6;

    const bt_tree& tree_;
    bt_node* ahead_; // to be fetched next; null = the end
    const agg_node* fetched_[distance];
    size_t position_ = 0;
};

int32_t print_record(const agg_node& node, print_context& print)
{
    return print_aggregation_record(&node, &print, 1);
}

int32_t print_top_record(const agg_node& node, print_context& print)
{
    const int32_t result = print_record(node, print);
    ++print.record_count;
    print.out->cut_here();
    return print.out->failed() ? BT_FAIL : result;
}

// False when a record could not be written; those behind it are not.
bool print_records(const bt_tree& tree, print_context& context, decltype(print_record)& print)
{
    prefetching_walk walk(tree);
    while (const agg_node* node = walk.next()) {
        if (print(*node, context) != BT_CONTINUE) {
            return false;
        }
    }
    return true;
}

void report_failed_write()
{
    err_print("__flush_aggregation_tree_to_file : failed writing to file\n");
}

struct dump_target {
    unique_fd file; // none for standard output
    int fd = -1;    // -1: it could not be opened, which has been reported
};

// "-" is standard output; what the host has printed there stays in front.
dump_target open_dump_target(const char* path)
{
    const bool debug = debug_on(debug_general);
    dump_target target;
    if (strcmp(path, "-") == 0) {
        os::flush_stream(stdout);
        if (debug) {
            debug_print("perf_flush_aggregation_tree : flushing to stdout\n");
        }
        target.fd = STDOUT_FILENO;
        return target;
    }
    target.file = open_for_appending(path);
    target.fd = target.file.get();
    if (!target.file) {
        err_print("perf_flush_aggregation_tree : failed opening[%s] error[%d](%s)\n", path, errno,
                  strerror(errno));
    } else if (debug) {
        debug_print("perf_flush_aggregation_tree : flushing to file[%s]\n", path);
    }
    return target;
}

} // namespace

int32_t print_aggregation_record(const void* record, void* context, int32_t /*depth*/)
{
    const agg_node& node = *static_cast<const agg_node*>(record);
    auto& print = *static_cast<print_context*>(context);
    const trace_line line = path_line(node, print);
    write_perf(print.out, trace_kind::start, &line);
    const bool callees_written = node.sub_opcode_tree == nullptr ||
                                 __flush_aggregation_tree_to_file(&print, nullptr, node.sub_opcode_tree) >= 0;
    write_buckets(node, line, print.out);
    write_perf(print.out, trace_kind::figures, &line);
    return callees_written ? BT_CONTINUE : BT_FAIL;
}

int32_t __flush_aggregation_tree_to_file(print_context* context, bt_tree* top_tree, bt_tree* tree)
{
    const bool with_frame = top_tree == tree;
    if (with_frame) {
        write_frame_start(*context);
    }
    bool written =
        tree != nullptr && print_records(*tree, *context, with_frame ? print_top_record : print_record);
    if (with_frame) {
        write_frame_end(*context);
        written = context->out->finish() && written;
    }
    if (!written) {
        report_failed_write();
        return -1;
    }
    return context->record_count;
}

int32_t perf_flush_aggregation_tree(const char* path, bt_tree* tree, int32_t pid, uint64_t tid, int64_t start,
                                    int64_t end, const char* program)
{
    if (path == nullptr || *path == '\0') {
        err_print("perf_flush_aggregation_tree : no fpath provided\n");
        return -1;
    }
    if (tree == nullptr) {
        report_failed_write(); // prefix kept: it is not this function's name
        return -1;
    }
    const dump_target target = open_dump_target(path);
    if (target.fd < 0) {
        return -1;
    }
    append_buffer out(target.fd);
    const owner_fields owner(static_cast<uint32_t>(pid != 0 ? pid : process_id()),
                             tid != 0 ? tid : thread_id());
    print_context context{&out, owner, {}, start, end, 0};
    copy_text(context.program, sizeof(context.program), program);
    return __flush_aggregation_tree_to_file(&context, tree, tree);
}
