#include "export/timeline_writer.h"

#include <fmt/format.h>

#include "output/table.h"
#include "output/value_text.h"
#include "readers/call_tree.h"
#include "readers/time_units.h"

namespace ostrum_tool {
namespace {

constexpr size_t most_list_bytes = 65'536; // of one field list; what is longer is cut

// "12.345" of 12,345 ns: microseconds, exact.
std::string microseconds(int64_t time_tv)
{
    const auto size = time_tv < 0 ? 0 - static_cast<uint64_t>(time_tv) : static_cast<uint64_t>(time_tv);
    return fmt::format("{}{}.{:03}", time_tv < 0 ? "-" : "", size / 1'000, size % 1'000);
}

} // namespace

void timeline_writer::know_first_call(int64_t time_tv)
{
    base_tv_ = base_tv_ == 0 ? time_tv - time_tv % ns_per_second : base_tv_;
}

void timeline_writer::add(const char* phase, const thread_id& thread, int64_t time_tv,
                          const std::string& members, nlohmann::ordered_json details, const char* list_name)
{
    end_event();
    int64_t distance_tv = time_tv;
    add_bounded(distance_tv, -base_tv_);
    waiting_head_ = fmt::format(R"({{"ph":"{}","ts":{},"pid":{},"tid":{}{})", phase,
                                microseconds(distance_tv), thread.first, thread.second, members);
    waiting_details_ = std::move(details);
    list_name_ = list_name;
}

void timeline_writer::take_list_line(std::string_view line)
{
    if (list_name_ != nullptr && list_.size() < most_list_bytes) {
        list_ += printable(line.substr(0, most_list_bytes - list_.size())) + "\n";
    }
}

void timeline_writer::end_event()
{
    if (waiting_head_.empty()) {
        return;
    }
    if (!list_.empty() && list_ != "NULL flist ptr\n") {
        waiting_details_[list_name_] = list_;
    }
    list_.clear();
    list_name_ = nullptr;
    out_ << (events_++ == 0 ? "{\"traceEvents\":[\n" : ",\n") << waiting_head_;
    if (!waiting_details_.empty()) {
        out_ << ",\"args\":" << json_text(waiting_details_);
    }
    out_ << "}";
    waiting_head_.clear();
}

void timeline_writer::finish()
{
    end_event();
    out_ << (events_ == 0 ? "{\"traceEvents\":[" : "") << "\n],\"displayTimeUnit\":\"ns\",\"otherData\":"
         << "{\"schema\":1,\"exporter\":\"ostrum\",\"base_ns\":" << base_tv_ << "}}\n";
}

} // namespace ostrum_tool
