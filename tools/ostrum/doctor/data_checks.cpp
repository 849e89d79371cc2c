// What the data file and the processes that use it show.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <map>
#include <thread>

#include <fmt/format.h>

#include "doctor/findings.h"
#include "output/value_text.h"
#include "readers/data_layout.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr uint64_t nearly_full_percent = 90;
constexpr auto between_lock_looks = std::chrono::milliseconds(300);
constexpr int lock_looks = 4;
constexpr size_t names_told = 5;

bool is_alive(int32_t thread)
{
    return ::kill(thread, 0) == 0 || errno == EPERM;
}

// Those that were held, by the same owner, each time.
template <typename Look>
std::vector<held_lock> locks_that_stay(Look look)
{
    std::vector<held_lock> held = look();
    for (int again = 1; again < lock_looks && !held.empty(); ++again) {
        std::this_thread::sleep_for(between_lock_looks);
        const std::vector<held_lock> now = look();
        std::erase_if(held, [&](const held_lock& lock) {
            return std::find(now.begin(), now.end(), lock) == now.end();
        });
    }
    return held;
}

std::vector<held_lock> locked_now(const std::string& path)
{
    try {
        return locked_mutexes(read_data_image(path));
    } catch (const input_error&) {
        return {};
    }
}

void report_held(const held_lock& lock, finding_list& findings)
{
    if (lock.owner != 0 && !is_alive(lock.owner)) {
        findings.push_back(
            {severity::wrong,
             fmt::format("the lock of {} is held by {}, which has gone", lock.name, lock.owner),
             "start a host process: it sets the header's locks up again; an entry's lock costs "
             "that entry alone"});
        return;
    }
    findings.push_back({severity::warning,
                        fmt::format("the lock of {} was held by {} all the time that it was looked at",
                                    lock.name, lock.owner),
                        "is that process stopped?"});
}

// A whole number, as values of variables should be.
bool is_whole_number(const std::string& text)
{
    char* behind = nullptr;
    std::strtol(text.c_str(), &behind, 10);
    return behind != text.c_str() && *behind == '\0';
}

bool has_other_than_numbers(const std::string& list)
{
    for (size_t from = 0; from <= list.size() && !list.empty();) {
        const size_t comma = std::min(list.find(',', from), list.size());
        if (!is_whole_number(list.substr(from, comma - from))) {
            return true;
        }
        from = comma + 1;
    }
    return false;
}

class variable_values {
public:
    explicit variable_values(const data_file& file)
    {
        for (const variable& each : file.variables) {
            values_.emplace(each.name, each.value);
        }
    }

    [[nodiscard]] std::string text(const std::string& name) const
    {
        const auto found = values_.find(name);
        return found != values_.end() ? found->second : "";
    }
    [[nodiscard]] int number(const std::string& name) const
    {
        return static_cast<int>(std::strtol(text(name).c_str(), nullptr, 10));
    }

private:
    std::map<std::string, std::string> values_;
};

} // namespace

void check_data_file(const patient& subject, finding_list& findings)
{
    if (!subject.unreadable.empty()) {
        findings.push_back({severity::wrong, subject.unreadable,
                            fmt::format("a data file has {} bytes; the first host process makes it, and none "
                                        "starts logging with another one in its place",
                                        data_file_bytes)});
    }
}

void check_content(const patient& subject, finding_list& findings)
{
    const std::vector<data_problem> problems = check_data_image(subject.image);
    if (!problems.empty()) {
        findings.push_back({severity::wrong,
                            fmt::format("{} damages, the first at offset {}: {}", problems.size(),
                                        problems.front().offset, problems.front().what),
                            "ostrum check tells all; ostrum_data_file_reset makes it anew"});
    }
}

void check_processes(const patient& subject, finding_list& findings)
{
    for (const host_process& host : subject.hosts) {
        if (host.file_is_gone) {
            findings.push_back({severity::wrong,
                                list_text({host}) + " writes to a data file that was removed or replaced",
                                "what it counts is lost; restart it"});
        }
    }
    if (!subject.image.empty() && subject.hosts.empty()) {
        const bool alive = is_alive(subject.file.pid);
        findings.push_back(
            {severity::warning,
             fmt::format("no process of yours has the file open; {}, which opened it last, {}",
                         subject.file.pid, alive ? "is another's, or does not use it now" : "has gone"),
             "the figures do not change"});
    }
}

void check_locks(const patient& subject, finding_list& findings)
{
    for (const held_lock& lock : locks_that_stay([&] { return locked_now(subject.path); })) {
        report_held(lock, findings);
    }
    for (const held_lock& lock : locks_that_stay([&] { return locked_ranges(subject.path); })) {
        report_held(lock, findings);
    }
    if (lock_method_of(subject.image) == lock_marks::both) {
        findings.push_back({severity::warning, "the file has been used with both lock methods",
                            "see \"Lock method\" in docs/settings.md"});
    }
}

void check_room(const patient& subject, finding_list& findings)
{
    const auto check = [&](const table_layout& table, size_t used) {
        if (used * 100 < table.entries * nearly_full_percent) {
            return;
        }
        const bool full = used >= table.entries;
        findings.push_back(
            {full ? severity::wrong : severity::warning,
             fmt::format("{} of {} {} are in use{}", used, table.entries, table.name,
                         full ? ": new ones are lost" : ""),
             "fewer key fields make fewer entries (time_on bits 4 and 8, ostrum_error_counter_level); "
             "ostrum_data_file_reset empties the tables"});
    };
    check(counter_table, subject.file.counters.size());
    check(error_table, subject.file.errors.size());
    check(variable_table, subject.file.variables.size());
}

void check_variables(const patient& subject, finding_list& findings)
{
    const variable_values values(subject.file);
    const auto warn = [&](const std::string& what, const std::string& advice) {
        findings.push_back({severity::warning, what, advice});
    };
    std::vector<std::string> unknown;
    for (const variable& each : subject.file.variables) {
        const bool number = each.name == "time_on" || each.name == "flist_on" || each.name == "alarm_on" ||
                            each.name == "log_error_flist";
        if (number && !each.value.empty() && !is_whole_number(each.value)) {
            warn(fmt::format("{} is \"{}\", which reads as {}", each.name, each.value,
                             values.number(each.name)),
                 "set it to a number");
        } else if (!number && each.name != "trace_opcodes") {
            unknown.push_back(each.name);
        }
    }
    if (!unknown.empty()) {
        const size_t more = unknown.size() - std::min(unknown.size(), names_told);
        unknown.resize(unknown.size() - more);
        warn(fmt::format("the library reads no variable {}{}", fmt::join(unknown, ", "),
                         more > 0 ? fmt::format(" and {} more", more) : ""),
             "misspelt?");
    }
    if (values.number("alarm_on") > 0) {
        warn("alarm_on switches nothing on: alarms are refused", "");
    }
    const int flist_on = values.number("flist_on");
    if (flist_on > 0 && (flist_on & 3) == 0) {
        warn(fmt::format("flist_on {} has neither bit 1 nor bit 2: the traces stay empty", flist_on), "");
    }
    const std::string opcodes = values.text("trace_opcodes");
    if (!opcodes.empty() && flist_on <= 0) {
        warn("trace_opcodes switches nothing on while flist_on is off", "ostrum vars set flist_on 1");
    }
    if (has_other_than_numbers(opcodes)) {
        warn("trace_opcodes \"" + opcodes +
                 "\": what is no number is skipped; with no number in it all "
                 "operations are traced",
             "use the operations' numbers");
    }
}

} // namespace ostrum_tool
