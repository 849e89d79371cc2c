#include "export/chrome_trace.h"

#include <algorithm>
#include <charconv>
#include <filesystem>

#include <fmt/format.h>

#include "output/table.h"
#include "output/value_text.h"
#include "readers/call_tree.h"
#include "readers/trace_record.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

using nlohmann::ordered_json;

constexpr size_t most_stacks = 100'000;
// The library cuts times to microseconds, so that a call may seem to end that much after the next one's
// start.
constexpr int64_t blur_tv = 1'000;

bool is_block(const flist_event& event)
{
    return event.is == flist_event::kind::block_in || event.is == flist_event::kind::block_out;
}

bool is_start(const flist_event& event)
{
    return event.is == flist_event::kind::block_in || event.is == flist_event::kind::tree_start;
}

std::string name_member(std::string_view name)
{
    return ",\"name\":" + json_text(name.empty() ? "(no name)" : printable(name));
}

// Of a tree line the elapsed time is the exact one; it is 0 while timing is off. Within an outermost call the
// clock does not go back.
int64_t moment_of(const flist_event& event, int64_t outermost_tv, int64_t last_tv)
{
    int64_t time_tv = event.time_tv;
    if (!is_block(event) && event.level > 1 && event.elapsed_tv > 0 && outermost_tv != 0) {
        time_tv = outermost_tv;
        add_bounded(time_tv, event.elapsed_tv);
    }
    const bool clock_was_set = is_start(event) && event.level == 1 && time_tv < last_tv - blur_tv;
    return clock_was_set ? time_tv : std::max(time_tv, last_tv);
}

ordered_json start_details(const flist_event& event)
{
    ordered_json details = ordered_json::object();
    if (!event.fname.empty()) {
        details["source"] = source_text(event.fname, static_cast<int32_t>(event.lineno));
    }
    details["flags"] = printable(event.flags);
    if (!event.correlation.empty()) {
        details["correlation"] = printable(event.correlation);
    }
    return details;
}

ordered_json end_details(bool cached, int64_t error, std::string_view error_text)
{
    ordered_json details = ordered_json::object();
    if (cached) {
        details["cached"] = true;
    }
    if (error != 0) {
        details["error"] = error;
        if (!error_text.empty()) {
            details["error_text"] = printable(error_text);
        }
    }
    return details;
}

} // namespace

std::optional<int64_t> first_call_tv(const std::string& path)
{
    std::optional<int64_t> first_tv;
    const auto source = open_source(path);
    const auto take = [&](const flist_event& event) { first_tv = event.time_tv; };
    read_flist_trace(*source, {take, [](uint64_t, const std::string&) {}}, 1);
    return first_tv;
}

damage_list chrome_trace::add_file(const std::string& path)
{
    damage_list damages;
    flist_sink sink;
    sink.on_event = [&](const flist_event& event) { take(event, damages); };
    sink.on_damage = [&](uint64_t offset, const std::string& what) { damages.add(offset, what); };
    sink.on_list_line = [&](std::string_view line) { writer_.take_list_line(line); };
    name_file_thread(path);
    const auto source = open_source(path);
    try {
        read_flist_trace(*source, sink);
    } catch (const damaged_input& error) {
        damages.add(0, error.what());
    }
    writer_.end_event();
    for (auto& [thread, stack] : stacks_) {
        close_down_to(stack, thread, INT32_MAX, stack.last_tv); // the others go on behind what was recorded
    }
    writer_.end_event();
    stacks_.clear();
    return damages;
}

// PID_TID.START.END.flog.txt
void chrome_trace::name_file_thread(const std::string& path)
{
    const std::string name = std::filesystem::path(path).filename().string();
    const char* const end = name.data() + name.size();
    const auto [underscore, pid_error] = std::from_chars(name.data(), end, file_thread_.first);
    if (pid_error == std::errc{} && underscore != end && *underscore == '_') {
        const auto [dot, tid_error] = std::from_chars(underscore + 1, end, file_thread_.second);
        if (tid_error == std::errc{} && dot != end && *dot == '.') {
            return;
        }
    }
    file_thread_ = {0, ++unnamed_files_};
}

void chrome_trace::take(const flist_event& event, damage_list& damages)
{
    writer_.end_event();
    if (event.level < 1 && event.is == flist_event::kind::block_out) {
        ++lost_ends_; // the library itself did not know the start
        return;
    }
    if (event.level < 1 || event.level > max_printed_level) {
        damages.add(event.offset, "a level that no call has");
        return;
    }
    writer_.know_first_call(event.time_tv);
    const thread_id thread = event.has_ids ? thread_id(event.pid, event.tid) : file_thread_;
    if (is_block(event) && thread.second == 0) {
        take_keyed_block(thread, event);
        return;
    }
    call_stack* const stack = stack_of(thread);
    if (stack == nullptr) {
        damages.add(event.offset, "more threads at once than can be told apart");
    } else if (is_start(event)) {
        begin_call(*stack, thread, event);
    } else if (is_block(event)) {
        end_block(*stack, thread, event);
    } else {
        end_tree_call(*stack, thread, event);
    }
}

chrome_trace::call_stack* chrome_trace::stack_of(const thread_id& thread)
{
    if (stacks_.size() >= most_stacks && !stacks_.contains(thread)) {
        std::erase_if(stacks_, [](const auto& each) { return each.second.calls.empty(); });
    }
    return stacks_.size() >= most_stacks && !stacks_.contains(thread) ? nullptr : &stacks_[thread];
}

void chrome_trace::begin_call(call_stack& stack, const thread_id& thread, const flist_event& event)
{
    const int64_t time_tv = moment_of(event, stack.outermost_tv, stack.last_tv);
    close_down_to(stack, thread, event.level, std::max(time_tv, stack.last_tv));
    if (stack.calls.empty()) {
        stack.outermost_tv = event.level == 1 ? time_tv : 0;
    }
    open_call call;
    call.level = event.level;
    call.seq = event.seq;
    call.is_block = is_block(event);
    call.start_tv = stack.last_tv = time_tv;
    call.shown = is_shown(thread, time_tv);
    if (call.shown) {
        writer_.add("B", thread, time_tv, name_member(event.name), start_details(event),
                    call.is_block ? "input" : nullptr);
    }
    stack.calls.push_back(call);
}

// Cached, error and end come in this order, for the call that is open at their level.
void chrome_trace::end_tree_call(call_stack& stack, const thread_id& thread, const flist_event& event)
{
    const int64_t time_tv = moment_of(event, stack.outermost_tv, stack.last_tv);
    const bool goes_on =
        !stack.calls.empty() && stack.calls.back().has_ended && stack.calls.back().level == event.level;
    if (!goes_on) {
        close_down_to(stack, thread, event.level + 1, time_tv);
    }
    if (stack.calls.empty() || stack.calls.back().level != event.level) {
        ++lost_ends_;
        return;
    }
    open_call& call = stack.calls.back();
    call.has_ended = true;
    call.end_tv = stack.last_tv = time_tv;
    call.cached = call.cached || event.is == flist_event::kind::tree_cached;
    call.error = event.error != 0 ? event.error : call.error;
    if (event.is == flist_event::kind::tree_end) {
        close_down_to(stack, thread, event.level, time_tv);
    }
}

void chrome_trace::end_block(call_stack& stack, const thread_id& thread, const flist_event& event)
{
    const auto call = std::find_if(stack.calls.begin(), stack.calls.end(), [&](const open_call& each) {
        return each.is_block && each.seq == event.seq;
    });
    if (call == stack.calls.end()) {
        ++lost_ends_;
        return;
    }
    int64_t time_tv = event.time_tv;
    if (event.elapsed_tv >= 0) {
        time_tv = call->start_tv;
        add_bounded(time_tv, event.elapsed_tv);
    }
    time_tv = std::max(time_tv, stack.last_tv);
    close_down_to(stack, thread, call->level + 1, time_tv);
    close_innermost(stack, thread, time_tv, end_details(event.cached, event.error, event.error_text),
                    "output");
}

// The keyed contexts of a process are mixed in one file, so that nothing is known of what encloses what:
// their calls go side by side, each known by its number.
void chrome_trace::take_keyed_block(const thread_id& thread, const flist_event& event)
{
    const bool starts = is_start(event);
    int64_t start_tv = event.time_tv;
    add_bounded(start_tv, starts ? 0 : -std::max<int64_t>(event.elapsed_tv, 0));
    if (!is_shown(thread, start_tv)) {
        return;
    }
    writer_.add(starts ? "b" : "e", thread, event.time_tv,
                fmt::format(R"(,"cat":"keyed","id":"{}")", event.seq) + name_member(event.name),
                starts ? start_details(event) : end_details(event.cached, event.error, event.error_text),
                starts ? "input" : "output");
}

// What is open at that level and below it must have ended, and what tree lines said has ended.
void chrome_trace::close_down_to(call_stack& stack, const thread_id& thread, int32_t level, int64_t time_tv)
{
    while (!stack.calls.empty() && (stack.calls.back().level >= level || stack.calls.back().has_ended)) {
        open_call& call = stack.calls.back();
        if (call.has_ended) {
            close_innermost(stack, thread, call.end_tv, end_details(call.cached, call.error, ""));
        } else {
            close_innermost(stack, thread, time_tv, {{"end", "not recorded, at the latest here"}});
        }
    }
}

void chrome_trace::close_innermost(call_stack& stack, const thread_id& thread, int64_t time_tv,
                                   ordered_json details, const char* list_name)
{
    if (stack.calls.back().shown) {
        writer_.add("E", thread, time_tv, "", std::move(details), list_name);
    }
    stack.last_tv = std::max(stack.last_tv, time_tv);
    stack.calls.pop_back();
}

bool chrome_trace::is_shown(const thread_id& thread, int64_t start_tv) const
{
    return filter_.allows_thread(thread.first, thread.second) && filter_.allows_time(start_tv);
}

} // namespace ostrum_tool
