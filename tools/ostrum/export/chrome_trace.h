#ifndef OSTRUM_TOOL_EXPORT_CHROME_TRACE_H
#define OSTRUM_TOOL_EXPORT_CHROME_TRACE_H
// Field-list traces as the timeline that trace viewers of browsers read: JSON objects for the begin and the
// end of each call, written as they are read. Memory is bounded by the calls that are open at once.
#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "export/timeline_writer.h"
#include "readers/damage_list.h"
#include "readers/flist_trace.h"
#include "readers/record_filter.h"

namespace ostrum_tool {

// When the first call of a file starts, ns since the epoch; nothing when there is none. Throws input_error.
std::optional<int64_t> first_call_tv(const std::string& path);

class chrome_trace {
public:
    // Times are told as the distance from base_tv, 0: from the second of the first call that is read. Viewers
    // keep them as floating-point microseconds; since 1970 these are too many to tell nanoseconds apart. Of
    // the filter, times are those at which calls start; programs are not known here.
    chrome_trace(std::ostream& out, const record_filter& filter, int64_t base_tv)
        : filter_(filter), writer_(out, base_tv)
    {}

    // Adds a file and gives what is damaged in it. Throws input_error.
    damage_list add_file(const std::string& path);
    void finish() { writer_.finish(); } // the file is no JSON before

    [[nodiscard]] int64_t events() const { return writer_.events(); }
    [[nodiscard]] int64_t lost_ends() const { return lost_ends_; } // whose begin is missing

private:
    using thread_id = timeline_writer::thread_id;
    struct open_call {
        int32_t level = 0;
        int64_t seq = 0; // of a block
        bool is_block = false;
        bool shown = false;
        int64_t start_tv = 0;
        // What a tree line has told about its end, which a further line may go on with.
        bool has_ended = false;
        bool cached = false;
        int64_t end_tv = 0;
        int64_t error = 0;
    };
    struct call_stack {
        std::vector<open_call> calls; // outermost first; levels rise
        int64_t outermost_tv = 0;     // start of the outermost call
        int64_t last_tv = 0;          // of what was told last
    };

    void take(const flist_event& event, damage_list& damages);
    void begin_call(call_stack& stack, const thread_id& thread, const flist_event& event);
    void end_tree_call(call_stack& stack, const thread_id& thread, const flist_event& event);
    void end_block(call_stack& stack, const thread_id& thread, const flist_event& event);
    void take_keyed_block(const thread_id& thread, const flist_event& event);
    void close_down_to(call_stack& stack, const thread_id& thread, int32_t level, int64_t time_tv);
    void close_innermost(call_stack& stack, const thread_id& thread, int64_t time_tv,
                         nlohmann::ordered_json details, const char* list_name = nullptr);
    void name_file_thread(const std::string& path);
    [[nodiscard]] bool is_shown(const thread_id& thread, int64_t start_tv) const;
    call_stack* stack_of(const thread_id& thread);

    const record_filter& filter_;
    timeline_writer writer_;
    int64_t lost_ends_ = 0;
    uint64_t unnamed_files_ = 0; // whose names do not tell process and thread
    thread_id file_thread_;      // of what tells neither
    std::map<thread_id, call_stack> stacks_;
};

} // namespace ostrum_tool
#endif
