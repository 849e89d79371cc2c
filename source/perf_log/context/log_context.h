#ifndef OSTRUM_PERF_LOG_CONTEXT_LOG_CONTEXT_H
#define OSTRUM_PERF_LOG_CONTEXT_LOG_CONTEXT_H
// The log context: all tracing state of one thread, or of one caller-chosen key.
//
// Locks and lifetime. `lock` is held by every hook for its whole length and by everyone else who looks
// into the context; what is read without it says so. References keep the memory: one of the process's
// list, one of each thread's slot and of each entry of a thread's cache, and one of a visit from outside.
// A context that was taken off the list is marked released under its lock; whoever then comes upon it
// through a slot or a cache gives that reference back and looks again.
#include <atomic>
#include <cstdint>

#include "config/program_name.h"
#include "data_file/layout.h"
#include "host_access/opcode_list.h"
#include "ostrum_util.h"
#include "perf_log/aggregation/aggregation_period.h"
#include "perf_log/aggregation/call_frame.h"
#include "perf_log/alarms/alarm_config.h"
#include "perf_log/context/context_lock.h"
#include "perf_log/context/path_index.h"
#include "util/resources.h"

namespace ostrum {

inline constexpr int32_t own_thread_key = -1; // key of the contexts that belong to threads

// Bit of the variable "time_on": nested levels too, and the trace file is kept open.
inline constexpr int32_t log_time_file = 0x2;

// Bit of the variable "alarm_on": the alarm file is kept open from one record to the next.
inline constexpr int32_t keep_alarm_file_open = 0x1;

// Whether a value of "time_on" sends timings to a file. A value below 0 is no timing at all, whatever
// its bits.
inline bool logs_to_file(int32_t time_mode)
{
    return time_mode > 0 && (time_mode & log_time_file) != 0;
}

// An open trace file, shared by a context and by copies of it that wait to be written: the last one to
// let go closes it.
struct shared_trace_file {
    std::atomic<int32_t> holders;
    int32_t fd;
};
shared_trace_file* share_trace_file(shared_trace_file* file); // one more holder; null allowed
void release_trace_file(shared_trace_file*& file);            // null allowed; leaves null

// The field-list trace while it is open; closed by emptying it.
struct flist_log {
    unique_fd file;
    bool to_stdout = false; // the host's stream, which is never closed
};

// What writing a context's tree needs and changes. A plain record, so that it can be handed over whole.
struct trace_source {
    int32_t pid;
    int32_t key;
    uint64_t tid;              // 0 for a keyed context
    char program[text_bytes];  // calling program, at most 126 characters
    bt_tree* tree;             // owned; null after a failed hand-over
    uint32_t tree_generation;  // counts emptied and exchanged trees: nodes of an older one are gone
    int32_t new_node_count;    // nodes made since the last flush; 0 = nothing to write
    shared_trace_file* file;   // held; null in single-file mode and while closed
    bool single_file;          // the trace goes to the shared single file
    int64_t last_flush_s;      // wall-clock second of the last flush: start of the next period record
    int64_t next_flush_tv;     // ns; read without the lock, through due_time and set_due_time
    aggregation_period period; // its two ends are read without the lock likewise
};

// The due times are single words that a visitor may read while the owner is busy.
inline int64_t due_time(const int64_t& word_tv)
{
    return std::atomic_ref<int64_t>(const_cast<int64_t&>(word_tv)).load(std::memory_order_relaxed);
}
inline void set_due_time(int64_t& word_tv, int64_t value_tv)
{
    std::atomic_ref<int64_t>(word_tv).store(value_tv, std::memory_order_relaxed);
}
void adopt_period(trace_source& source, const aggregation_period& period);

// After a flush: the last one was now, the next is due one flush frequency later.
void move_flush_times_on(trace_source& source);
// The clock was: what is due by its old time would wait for as long. Reads one word, without the lock.
bool was_set_back_since_flush(const trace_source& source, int64_t now_tv);

// Closes the trace file (copies that wait to be written keep it open) and leaves single-file mode.
void close_trace_file(trace_source& source);

// Handles of the data-file variables that every context looks at, filled on first use.
struct variable_handles {
    variable_entry* time_on;
    variable_entry* flist_on;
    variable_entry* alarm_on;
    variable_entry* trace_opcodes;
};

struct log_context {
    context_lock lock;
    std::atomic<int32_t> references;
    std::atomic<bool> released; // off the list: files closed, trees gone; set under the lock
    bool from_fork;             // inherited by a forked child: its data belong to the parent

    trace_source trace;
    bt_tree* single_tree;     // owned; per-operation tree
    bool single_tree_active;  // nothing sets it in this build
    bool grouped_transaction; // nothing sets it in this build

    known_correlation correlation; // that trace.program was taken from

    // the call stack
    int32_t depth;               // innermost open frame; -1 = none; may exceed the frames
    int32_t open_hook_calls;     // starts less ends, recorded or not; kept on purpose: nothing here reads it
    uint32_t operation_sequence; // recorded starts
    uint32_t top_sequence;       // of the outermost operation in progress
    uint32_t current_sequence;   // of the operation last started or ended at this level
    call_frame frames[max_call_frames];
    path_index index; // owned; of the nodes of the aggregation tree

    // steering, refreshed from the data file between operations
    int32_t time_mode;
    int32_t flist_mode;
    int32_t alarm_mode;
    int64_t next_status_check_tv;
    int64_t variables_stamp_tv; // the variables' last-modified time when they were last read
    variable_handles variables;
    trace_opcode_list trace_opcodes;
    // alarms; start-up refuses the settings that would arm them
    const alarm_limit* alarm_at; // the current limit; null = none
    const alarm_entry* alarms;   // the limits of the outermost operation; null = none
    int64_t next_alarm_tv;       // ns, when the timed flush looks at it; 0 = not
    unique_fd alarm_file;        // kept open from one record to the next

    flist_log flist_trace;
    bool skip_flist_trace; // no field lists of the outermost operation in progress are traced

    int32_t starts_since_file_close;   // outermost starts since the trace file was last closed
    std::atomic<bool> flush_requested; // set by the timed flush, also without the lock
};

inline constexpr int32_t no_depth = -1;

// Whether the innermost call is timed: always at the outermost level while timing is on, deeper only when
// timing goes to a file.
inline bool is_aggregated(const log_context& context)
{
    return context.depth == 0 ? context.time_mode > 0 : logs_to_file(context.time_mode);
}

// A zeroed context of (pid, key) in the present aggregation period, with its trees and one reference;
// null after diagnostic lines. A thread's own context carries the calling thread's id.
log_context* init_log_info(int32_t pid, int32_t key);

void destroy_owned_list(call_frame& frame); // the input list, if the frame owns it

[[gnu::always_inline]] inline void clear_frame(call_frame& frame)
{
    if (frame.owns_in_flist) [[unlikely]] {
        destroy_owned_list(frame);
    }
    // The body of its own totals means nothing while they are not in use, and this runs in every end hook.
    frame.start_tv = 0;
    frame.first_start_tv = 0;
    frame.user_cpu_tv = 0;
    frame.sys_cpu_tv = 0;
    frame.in_flist = nullptr;
    frame.opcode = 0;
    frame.opflags = 0;
    frame.sequence = 0;
    frame.key_hash = 0;
    frame.node = nullptr;
    frame.single_node = nullptr;
    frame.own.total_calls = start_marker;
}

void close_files(log_context& context); // trace file, field-list trace and alarm file
void unpin(log_context* context);       // gives a reference back; the last one frees the memory
inline void pin(log_context* context)
{
    context->references.fetch_add(1, std::memory_order_relaxed);
}

} // namespace ostrum
#endif
