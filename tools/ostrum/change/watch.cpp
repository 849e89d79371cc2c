#include "change/watch.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

#include <fmt/format.h>

#include "output/value_text.h"
#include "readers/host_processes.h"

namespace ostrum_tool {
namespace {

constexpr auto between_looks = std::chrono::milliseconds(250);
constexpr int quiet_looks_needed = 6; // three status checks, as hosts have them unless configured

struct observation {
    uint64_t counted = 0; // operations since the change
    int quiet_looks = 0;  // the last ones, in which none was counted
    std::vector<host_process> hosts;
    std::string value; // of the variable, in the file
};

bool has_open(const observation& seen, const char* ending)
{
    return std::any_of(seen.hosts.begin(), seen.hosts.end(), [&](const host_process& host) {
        return std::any_of(host.trace_files.begin(), host.trace_files.end(),
                           [&](const std::string& file) { return file.ends_with(ending); });
    });
}

// What hosts do once they have read a variable's new value.
struct effect {
    const char* variable;
    bool (*expected)(int before, int after);
    bool (*seen)(const observation& seen);
    const char* what;
};
constexpr effect effects[] = {
    {"time_on", [](int before, int after) { return (before & 2) == 0 && after > 0 && (after & 2) != 0; },
     [](const observation& seen) { return has_open(seen, ".plog.txt"); }, "a trace data file is open"},
    {"time_on", [](int before, int after) { return before <= 0 && after > 0; },
     [](const observation& seen) { return seen.counted > 0; }, "operations are counted"},
    {"time_on", [](int before, int after) { return before > 0 && after <= 0; },
     [](const observation& seen) { return seen.counted > 0 && seen.quiet_looks >= quiet_looks_needed; },
     "no more operations are counted"},
    {"flist_on", [](int before, int after) { return before <= 0 && after > 0; },
     [](const observation& seen) { return has_open(seen, ".flog.txt"); }, "a field-list trace is open"},
    {"flist_on", [](int before, int after) { return before > 0 && after <= 0; },
     [](const observation& seen) { return !has_open(seen, ".flog.txt"); },
     "no field-list trace is open any more"},
};

// As hosts read it.
int number_in(const std::string& value)
{
    return static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
}

const effect* effect_of(const variable_change& change)
{
    const int before = number_in(change.before);
    const int after = number_in(change.after);
    const auto* const found = std::find_if(std::begin(effects), std::end(effects), [&](const effect& each) {
        return change.name == each.variable && each.expected(before, after);
    });
    return found != std::end(effects) ? found : nullptr;
}

uint64_t calls_gained(const look& before, const look& now)
{
    uint64_t calls = 0;
    for (const operation_counter& counter : gains(before.file.counters, now.file.counters)) {
        calls += counter.calls;
    }
    return calls;
}

class watcher {
public:
    explicit watcher(const variable_change& change) : change_(change), last_(change.at_change) {}

    const observation& look_again()
    {
        std::this_thread::sleep_for(between_looks);
        look now = look_at_data_file(change_.path);
        const uint64_t calls = calls_gained(last_, now);
        seen_.counted += calls;
        seen_.quiet_looks = calls > 0 ? 0 : seen_.quiet_looks + 1;
        seen_.hosts = hosts_of(change_.path);
        for (const variable& each : now.file.variables) {
            seen_.value = each.name == change_.name ? each.value : seen_.value;
        }
        last_ = std::move(now);
        return seen_;
    }

private:
    const variable_change& change_;
    look last_;
    observation seen_;
};

std::string verdict(const variable_change& change, const effect* expected, const observation& seen, bool met)
{
    if (seen.value != change.after) {
        return "not taken: somebody else has set it to " + printable(seen.value);
    }
    if (seen.hosts.empty()) {
        return "no process of yours has the file open: the value counts for those that open it next";
    }
    const std::string who = fmt::format("{} process{}: {}", seen.hosts.size(),
                                        seen.hosts.size() == 1 ? "" : "es", list_text(seen.hosts));
    if (met) {
        return fmt::format("taken: {}; used by {}", expected->what, who);
    }
    if (expected != nullptr) {
        return fmt::format("not seen yet: {} ({} operations were counted meanwhile); used by {}",
                           expected->what, seen.counted, who);
    }
    return "hosts look at it before the next outermost operation, twice a second unless configured; nothing "
           "that they do shows it from outside; used by " +
           who;
}

} // namespace

std::string watch_hosts(const variable_change& change, int64_t limit_tv)
{
    const auto until = std::chrono::steady_clock::now() + std::chrono::nanoseconds(limit_tv);
    const effect* const expected = effect_of(change);
    watcher watching(change);
    for (;;) {
        const observation& seen = watching.look_again();
        const bool met = expected != nullptr && expected->seen(seen);
        const bool settled = met || expected == nullptr || seen.hosts.empty() || seen.value != change.after;
        if (settled || std::chrono::steady_clock::now() >= until) {
            return verdict(change, expected, seen, met);
        }
    }
}

} // namespace ostrum_tool
