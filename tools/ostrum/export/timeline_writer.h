#ifndef OSTRUM_TOOL_EXPORT_TIMELINE_WRITER_H
#define OSTRUM_TOOL_EXPORT_TIMELINE_WRITER_H
// The JSON of a timeline, event by event. One event is held back: its field list may follow it.
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

namespace ostrum_tool {

class timeline_writer {
public:
    using thread_id = std::pair<uint32_t, uint64_t>; // process and thread

    // Times are told as the distance from base_tv, ns since the epoch; 0: not known yet.
    timeline_writer(std::ostream& out, int64_t base_tv) : out_(out), base_tv_(base_tv) {}

    // Where no base was given, the second of the first call is.
    void know_first_call(int64_t time_tv);

    // `members` are further ones of the event, each with a comma in front. Lines that are taken next go into
    // its details under `list_name`; null: nowhere.
    void add(const char* phase, const thread_id& thread, int64_t time_tv, const std::string& members,
             nlohmann::ordered_json details, const char* list_name);
    void take_list_line(std::string_view line);
    // What is taken next belongs to none of the events so far.
    void end_event();
    void finish(); // the text is no JSON before

    [[nodiscard]] int64_t events() const { return events_; }

private:
    std::ostream& out_;
    int64_t base_tv_;
    int64_t events_ = 0;       // written
    std::string waiting_head_; // empty: nothing waits
    nlohmann::ordered_json waiting_details_;
    std::string list_;
    const char* list_name_ = nullptr;
};

} // namespace ostrum_tool
#endif
