#include "perf_log/output/trace_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "config/settings.h"
#include "data_file/locks.h"
#include "ordered_tree/stored_tree.h"
#include "perf_log/aggregation/file_names.h"
#include "perf_log/output/tree_writer.h"
#include "util/append_file.h"
#include "util/clock_checks.h"
#include "util/diagnostics.h"
#include "util/text.h"
#include "util/time_value.h"

using namespace ostrum;

namespace {

period_texts texts_of(const aggregation_period& period)
{
    return {period.start_text, period.end_text};
}

// Renames a shared file that has reached its limit. A file of the new name, from an earlier rotation in
// this very second, is not overwritten: the rotation waits for the next flush.
bool rotate_when_full(int fd, const char* path)
{
    struct stat status {};
    if (os::status_of_file(fd, status) != 0 || status.st_size < configured().single_file_limit_bytes) {
        return true;
    }
    char rotated[path_bytes + 32];
    constexpr size_t name_end_bytes = 1 + sizeof(trace_extension) - 1; // with the dot before it
    snprintf(rotated, sizeof(rotated), "%.*s.%u.%s", static_cast<int>(strlen(path) - name_end_bytes), path,
             static_cast<unsigned>(os::realtime_ns() / tv_per_s), trace_extension);
    if (os::status_of_path(rotated, status) == 0 || errno != ENOENT) {
        return true;
    }
    if (os::rename_path(path, rotated) != 0) {
        err_print("flush_aggregation_tree_to_file : failed renaming[%s] -> [%s]\n", path, rotated);
        return false;
    }
    if (debug_on(debug_general)) {
        debug_print("flush_aggregation_tree_to_file : old[%s] -> new[%s]\n", path, rotated);
    }
    return true;
}

bool write_tree(append_buffer& out, const trace_source& source, bt_tree* tree, int32_t& record_count)
{
    print_context context{&out,
                          owner_fields(static_cast<uint32_t>(source.pid), source.tid),
                          {},
                          source.last_flush_s * tv_per_s,
                          static_cast<int64_t>(os::wall_seconds()) * tv_per_s,
                          0};
    copy_text(context.program, sizeof(context.program), source.program);
    record_count = __flush_aggregation_tree_to_file(&context, tree, tree);
    return record_count >= 0;
}

enum class write_result { written, failed, not_opened };

// Under the trace lock of the data file from the opening to after the rename, so that processes neither
// mix their records nor rotate under one another. Without the lock (its holder is stuck) the text is
// appended all the same, in one write, but nothing is renamed.
write_result write_to_single_file(const trace_source& source, bt_tree* tree, int32_t& record_count)
{
    char path[path_bytes];
    if (!shared_path(path, texts_of(source.period), trace_extension)) {
        err_print("flush_aggregation_tree_to_file : overflow of fpath[%s]\n", path);
        return write_result::not_opened;
    }
    const data_file_guard guard(__ostrum_get_data_file_handle(), DATA_FILE_LOCK_TRACE);
    const unique_fd file = open_for_appending(path);
    if (!file) {
        err_print("flush_aggregation_tree_to_file : failed opening[%s] error[%d](%s)\n", path, errno,
                  strerror(errno));
        return write_result::not_opened;
    }
    // Half a line is that of a killed process, whose lock is free. Record locks do not keep the threads of a
    // process apart: there it may be one that is being written, and what comes of it is an empty line.
    append_buffer out(file.get());
    if (guard && ends_within_line(path)) {
        out.add_character('\n');
    }
    const bool written = write_tree(out, source, tree, record_count);
    const bool rotated = !guard || rotate_when_full(file.get(), path);
    return written && rotated ? write_result::written : write_result::failed;
}

write_result write_to_own_file(const trace_source& source, bt_tree* tree, int32_t& record_count)
{
    append_buffer out(source.file->fd);
    return write_tree(out, source, tree, record_count) ? write_result::written : write_result::failed;
}

bool empty_tree(trace_source& source, bt_tree* tree)
{
    ++source.tree_generation;
    if (bt_empty(tree) != BT_EMPTIED) {
        err_print("flush_aggregation_tree_to_file : failed deleting tree\n");
        return false;
    }
    source.new_node_count = 0;
    return true;
}

write_result write_and_empty(trace_source& source, bt_tree* tree, int32_t& record_count)
{
    const write_result result =
        (source.file != nullptr ? write_to_own_file : write_to_single_file)(source, tree, record_count);
    if (result == write_result::not_opened) {
        return result; // the tree stays for the next attempt
    }
    move_flush_times_on(source);
    return empty_tree(source, tree) ? result : write_result::failed;
}

} // namespace

void open_log_file(trace_source* source)
{
    if (configured().single_file) {
        source->single_file = true;
        return;
    }
    char path[path_bytes];
    const bool named = own_path(path, source->pid, source->tid, texts_of(source->period), trace_extension);
    unique_fd file = named ? open_for_appending(path) : unique_fd{};
    heap_ptr<shared_trace_file> shared = heap_zeroed<shared_trace_file>();
    if (!file || !shared) {
        err_print("open_log_file : failed opening log file[%s] for pid[%d] tid[%lu]\n", path, source->pid,
                  source->tid);
        return;
    }
    source->file = new (shared.release()) shared_trace_file{1, file.release()};
}

int32_t flush_aggregation_tree_to_file(trace_source* source, bt_tree* tree)
{
    const bool debug = debug_on(debug_general);
    const int64_t started_tv = debug ? os::realtime_ns() : 0;
    if (debug) {
        debug_print("flush_aggregation_tree_to_file : pid/tid/key[%d/%lu/%d] nodes[%d]\n", source->pid,
                    source->tid, source->key, source->new_node_count);
    }
    if (source->new_node_count == 0) {
        if (tree != nullptr) {
            give_back_memory(*tree); // of an idle context
        }
        return 0;
    }
    const int32_t node_count = source->new_node_count;
    int32_t record_count = 0;
    if (write_and_empty(*source, tree, record_count) != write_result::written) {
        err_print("flush_aggregation_tree_to_file : pid/tid/key[%d/%lu/%d] - nodes[%d] - failed to flush\n",
                  source->pid, source->tid, source->key, node_count);
        return -1;
    }
    if (debug) {
        char elapsed[32];
        debug_print("flush_aggregation_tree_to_file : pid/tid/key[%d/%lu/%d] nodes[%d] flush time[%s]\n",
                    source->pid, source->tid, source->key, record_count,
                    ostrum_fmt_tv(elapsed_since(started_tv), elapsed, sizeof(elapsed), format_seconds_ns));
    }
    return record_count;
}
