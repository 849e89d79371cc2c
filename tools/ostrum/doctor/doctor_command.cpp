#include <algorithm>
#include <array>
#include <memory>

#include "cli/command.h"
#include "cli/option_values.h"
#include "doctor/findings.h"
#include "output/value_text.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

struct doctor_choice {
    std::string path;
    output_format format = output_format::text;
};

constexpr doctor_check checks[] = {
    {"data file", "readable, of the right size", false, check_data_file},
    {"content", "nothing in it is damaged", true, check_content},
    {"processes", "live ones use it", false, check_processes},
    {"locks", "none stays held", true, check_locks},
    {"tables", "have room", true, check_room},
    {"variables", "switch on what they say", true, check_variables},
    {"settings", "none will be refused", false, check_settings},
    {"log directories", "can be written to, and have room", false, check_log_directories},
};

constexpr std::array severity_names{"ok", "warning", "wrong"};

patient examine(const std::string& path)
{
    patient subject;
    subject.path = path;
    try {
        subject.image = read_data_image(path);
        subject.file = decode_data_file(subject.image);
    } catch (const input_error& error) {
        subject.unreadable = error.what();
    }
    subject.hosts = hosts_of(path);
    for (const host_process& host : subject.hosts) {
        settings_source source = settings_source::of_process(host);
        const auto same = std::find_if(subject.settings.begin(), subject.settings.end(),
                                       [&](const auto& other) { return other.same_settings(source); });
        if (same != subject.settings.end()) {
            same->add_process(source.who());
        } else {
            subject.settings.push_back(std::move(source));
        }
    }
    if (subject.hosts.empty()) {
        subject.settings.push_back(settings_source::here());
    }
    return subject;
}

finding_list findings_of(const doctor_check& check, const patient& subject)
{
    finding_list findings;
    if (check.needs_image && subject.image.empty()) {
        return {{severity::ok, "not looked at: there is no data file", ""}};
    }
    check.run(subject, findings);
    if (findings.empty()) {
        findings.push_back({severity::ok, check.fine, ""});
    }
    return findings;
}

int run_doctor(const doctor_choice& chosen, const streams& to)
{
    const patient subject = examine(chosen.path);
    const bool text = chosen.format == output_format::text;
    table rows({{"check", "check", cell_kind::text},
                {"severity", "severity", cell_kind::text},
                {"what", "what", cell_kind::text},
                {"advice", "advice", cell_kind::text}});
    severity worst = severity::ok;
    for (const doctor_check& check : checks) {
        for (const finding& found : findings_of(check, subject)) {
            const std::string level = severity_names[static_cast<size_t>(found.level)];
            worst = std::max(worst, found.level);
            if (text) { // lines: what is said is longer than a column
                to.out << level << "  " << check.name << ": " << printable(found.what)
                       << (found.advice.empty() ? "" : "; ") << printable(found.advice) << "\n";
            } else {
                rows.add_row({std::string(check.name), level, found.what, found.advice});
            }
        }
    }
    if (!text) {
        rows.print(to.out, chosen.format, to.style, {{"kind", "doctor"}});
    }
    return worst == severity::ok ? exit_done : exit_threshold;
}

command_body declare_doctor(CLI::App& app)
{
    const auto chosen = std::make_shared<doctor_choice>();
    add_data_file_operand(app, chosen->path);
    add_format_options(app, chosen->format);
    return [chosen](const streams& to) { return run_doctor(*chosen, to); };
}

} // namespace

const command doctor_command{"doctor", "Says what is wrong with a running set-up; status 4 when something is",
                             declare_doctor};

} // namespace ostrum_tool
