#include <memory>

#include <fmt/format.h>

#include "change/changes_of_data_file.h"
#include "change/consent.h"
#include "change/library_file.h"
#include "output/value_text.h"
#include "readers/data_file.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

struct table_totals {
    size_t records = 0;
    size_t used = 0; // with a total above 0
    uint64_t sum = 0;
};

template <typename Record>
table_totals totals_of(const std::vector<Record>& records, uint64_t Record::*total)
{
    table_totals totals;
    for (const Record& record : records) {
        ++totals.records;
        totals.used += record.*total > 0 ? 1 : 0;
        totals.sum += record.*total;
    }
    return totals;
}

struct resettable {
    const char* command; // that shows the table
    const char* things;
    table_totals (*totals)(const data_file& file);
    void (*reset)(rt_info* file);
};
constexpr resettable counters{
    "counters", "calls",
    [](const data_file& file) { return totals_of(file.counters, &operation_counter::calls); },
    ostrum_counters_reset};
constexpr resettable errors{
    "errors", "errors", [](const data_file& file) { return totals_of(file.errors, &error_counter::count); },
    ostrum_errors_reset};

int run_reset(const resettable& table, const change_choice& chosen, const streams& to)
{
    const table_totals before = table.totals(read_data_file(chosen.path));
    const std::string path = printable(shell_word(chosen.path));
    to.out << fmt::format("{}: the totals of {} {} ({} {}) become 0; the entries stay, hosts count on\n",
                          printable(chosen.path), before.used, table.command, before.sum, table.things)
           << "nothing undoes it; to keep the figures first: ostrum " << table.command << " --json " << path
           << " > before.json\n";
    if (!has_consent(chosen, to)) {
        return chosen.dry_run ? exit_done : exit_input;
    }
    table.reset(open_with_locks(chosen.path).get());
    const table_totals after = table.totals(read_data_file(chosen.path));
    if (before.sum > 0 && after.sum >= before.sum) { // the library tells nothing
        throw input_error(chosen.path + ": the totals were not reset; is a lock held? ostrum doctor tells");
    }
    to.out << fmt::format("reset; {} {} since\n", after.sum, table.things);
    return exit_done;
}

command_body declare_reset(CLI::App& app, const resettable& table)
{
    const auto chosen = std::make_shared<change_choice>();
    add_change_options(app, *chosen);
    return [chosen, &table](const streams& to) { return run_reset(table, *chosen, to); };
}

} // namespace

command_body declare_reset_counters(CLI::App& app)
{
    return declare_reset(app, counters);
}

command_body declare_reset_errors(CLI::App& app)
{
    return declare_reset(app, errors);
}

} // namespace ostrum_tool
