#include "readers/tree_builder.h"

#include <algorithm>

#include "readers/local_time.h"

namespace ostrum_tool {
namespace {

path_key key_of(const start_record& record, bool brief)
{
    path_key key;
    key.opcode = record.opcode;
    key.opname = record.opname;
    if (!brief) {
        key.flags = record.flags;
        key.program = record.program;
        key.fname = record.fname;
        key.lineno = record.lineno;
        key.obj_type = record.obj_type;
        key.db_num = record.db_num;
    }
    return key;
}

} // namespace

void trace_coverage::add(const trace_coverage& other)
{
    files += other.files;
    flushes += other.flushes;
    operations += other.operations;
    left_out += other.left_out;
    threads.insert(other.threads.begin(), other.threads.end());
    if (other.from_tv != 0 && (from_tv == 0 || other.from_tv < from_tv)) {
        from_tv = other.from_tv;
    }
    to_tv = std::max(to_tv, other.to_tv);
}

size_t trace_coverage::processes() const
{
    std::set<uint32_t> pids;
    for (const auto& [pid, tid] : threads) {
        pids.insert(pid);
    }
    return pids.size();
}

void tree_builder::on_frame(const start_record& frame, uint64_t /*offset*/)
{
    period_from_tv_ = frame.time_tv;
    if (!frame_counts()) {
        return;
    }
    ++coverage_.flushes;
    if (coverage_.threads.size() < trace_coverage::most_remembered) {
        coverage_.threads.insert({frame.pid, frame.tid});
    }
    if (coverage_.from_tv == 0 || frame.time_tv < coverage_.from_tv) {
        coverage_.from_tv = frame.time_tv;
    }
}

void tree_builder::on_frame_end(const figures& record)
{
    if (frame_counts()) {
        coverage_.to_tv = std::max(coverage_.to_tv, record.total_tv);
    }
}

bool tree_builder::frame_counts() const
{
    return options_.filter.allows_time(period_from_tv_);
}

bool tree_builder::counts(const start_record& path) const
{
    const record_filter& filter = options_.filter;
    return frame_counts() && filter.allows_thread(path.pid, path.tid) && filter.allows_program(path.program);
}

void tree_builder::on_path(const start_record& path, uint64_t /*offset*/, bool /*missing*/)
{
    if (open_.empty()) {
        const bool counted = counts(path);
        open_.push_back(counted ? tree_.child(group_of(path), key_of(path, options_.brief))
                                : call_tree::root);
        return;
    }
    const node_index above = open_.back();
    open_.push_back(above == call_tree::root ? above : tree_.child(above, key_of(path, options_.brief)));
}

node_index tree_builder::group_of(const start_record& path)
{
    switch (options_.by) {
    case grouping::thread:
        return group_named("process " + std::to_string(path.pid) + " thread " + std::to_string(path.tid));
    case grouping::process:
        return group_named("process " + std::to_string(path.pid));
    case grouping::period:
        return group_named("from " + local_time_text(period_begin(period_from_tv_, options_.period_tv)));
    case grouping::none:
        break;
    }
    return call_tree::root;
}

node_index tree_builder::group_named(const std::string& name)
{
    path_key key;
    key.opname = name;
    key.is_group = true;
    return tree_.child(call_tree::root, key);
}

void tree_builder::on_figures(const figures& record)
{
    const node_index closed = open_.back();
    open_.pop_back();
    if (closed == call_tree::root) {
        ++coverage_.left_out;
        return;
    }
    ++coverage_.operations;
    tree_.sums(closed).add(record);
}

void tree_builder::on_lost()
{
    open_.pop_back();
}

void tree_builder::on_bucket(int32_t /*number*/, uint64_t /*offset*/, const figures& record)
{
    if (open_.empty() || open_.back() == call_tree::root || record.total_calls == 0) {
        return;
    }
    totals sums;
    sums.add(record);
    tree_.add_bucket(open_.back(), record.bs_tv, record.be_tv, sums);
}

} // namespace ostrum_tool
