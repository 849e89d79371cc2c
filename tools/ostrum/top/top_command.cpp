#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <sstream>
#include <thread>

#include <fmt/format.h>

#include "cli/command.h"
#include "cli/named_values.h"
#include "cli/option_values.h"
#include "output/value_text.h"
#include "readers/host_processes.h"
#include "readers/local_time.h"
#include "readers/time_units.h"
#include "tool_errors.h"
#include "top/terminal_screen.h"

namespace ostrum_tool {
namespace {

struct top_choice {
    std::string path;
    std::string interval = "1s", pane = "counters", sort, pattern;
    std::vector<std::string> by;
    bool batch = false, hide_idle = false;
    int64_t count = 0, rows = 0;
    output_format format = output_format::text;
};

constexpr std::array<named_value<pane_kind>, 4> pane_names{{{"counters", pane_kind::counters},
                                                            {"errors", pane_kind::errors},
                                                            {"metrics", pane_kind::metrics},
                                                            {"variables", pane_kind::variables}}};

using monotonic = std::chrono::steady_clock;

// "process 4711 (catalog_server)": who opened the file last.
std::string host_text(int32_t pid)
{
    const std::string name = name_of_process(pid);
    return fmt::format("process {} ({})", pid, name.empty() ? "gone" : name);
}

template <typename Element>
std::vector<Element> with_first(Element first, std::vector<Element> rest)
{
    std::vector<Element> all;
    all.reserve(rest.size() + 1);
    all.push_back(std::move(first));
    std::move(rest.begin(), rest.end(), std::back_inserter(all));
    return all;
}

top_view view_of(const top_choice& chosen)
{
    top_view view;
    view.pane = value_named(pane_names, chosen.pane, "no pane ");
    view.interval_tv = std::max<int64_t>(duration_value("-d", chosen.interval), 1'000'000);
    auto& shown = view.shown();
    if (const auto problem = pattern_problem(chosen.pattern)) {
        throw usage_error("--filter " + chosen.pattern + ": " + *problem);
    }
    if (!chosen.by.empty()) {
        shown.kept = view.pane == pane_kind::errors ? error_fields("--by", chosen.by)
                                                    : counter_fields("--by", chosen.by);
        shown.kept_names = fmt::format("{}", fmt::join(chosen.by, ","));
    }
    shown.order = arrangement_by(view.pane, chosen.sort);
    shown.order.pattern = chosen.pattern;
    shown.order.hide_idle = chosen.hide_idle;
    return view;
}

class batches {
public:
    batches(const top_choice& chosen, const streams& to) : chosen_(chosen), to_(to), view_(view_of(chosen)) {}

    // The first batch comes after the first interval: before it nothing is known about rates.
    int run()
    {
        look before = look_at_data_file(chosen_.path);
        for (int64_t shown = 0; chosen_.count == 0 || shown < chosen_.count; ++shown) {
            std::this_thread::sleep_for(std::chrono::nanoseconds(view_.interval_tv));
            look now = look_at_data_file(chosen_.path);
            print({&before, now}, shown);
            if (!to_.out.flush()) {
                break;
            }
            before = std::move(now);
        }
        return exit_done;
    }

private:
    void print(const comparison& compared, int64_t number)
    {
        pane_content content = build_pane(view_.pane, compared, view_.shown().kept);
        arrange(content, view_.shown().order);
        if (chosen_.rows > 0 && content.rows.size() > static_cast<size_t>(chosen_.rows)) {
            content.rows.resize(static_cast<size_t>(chosen_.rows));
        }
        const bool text = chosen_.format == output_format::text;
        table rows(with_first(column{"time_ns", ""}, std::move(content.columns)));
        for (auto& row : content.rows) {
            rows.add_row(with_first(cell(compared.now.local_tv), std::move(row)));
        }
        if (text) {
            to_.out << (number > 0 ? "\n" : "") << local_time_text(compared.now.local_tv) << "   "
                    << host_text(compared.now.file.pid) << "\n"
                    << fill_text(compared.now.file) << "\nfigures " << span_text(view_.span, compared)
                    << "\n\n";
        }
        std::ostringstream printed;
        rows.print(printed, chosen_.format, to_.style,
                   {{"kind", "top"},
                    {"pane", chosen_.pane},
                    {"time_ns", compared.now.local_tv},
                    {"interval_ns", compared.now.monotonic_tv - compared.before->monotonic_tv}});
        const bool separated = chosen_.format == output_format::csv || chosen_.format == output_format::tsv;
        const bool has_header = separated && number > 0; // one is enough
        to_.out << (has_header ? printed.str().substr(printed.str().find('\n') + 1) : printed.str());
    }

    const top_choice& chosen_;
    const streams& to_;
    top_view view_;
};

class live_top {
public:
    live_top(const top_choice& chosen, const streams& to)
        : path_(chosen.path), ascii_(to.style.ascii), view_(view_of(chosen)),
          now_(look_at_data_file(chosen.path)), before_(now_), mark_(now_), screen_(to.style.colour)
    {}

    int run()
    {
        next_look_tv_ = now_tv<monotonic>() + view_.interval_tv;
        for (;;) {
            draw();
            key_press pressed;
            const int64_t left_tv = std::max<int64_t>(next_look_tv_ - now_tv<monotonic>(), 0);
            const auto event = screen_.wait(left_tv, pressed);
            if (event == terminal_screen::event::left) {
                return exit_done;
            }
            if (event == terminal_screen::event::key && !heed(pressed)) {
                return exit_done;
            }
            if (now_tv<monotonic>() >= next_look_tv_) {
                next_look_tv_ = now_tv<monotonic>() + view_.interval_tv;
                if (!view_.paused) {
                    look_again();
                }
            }
        }
    }

private:
    // False: leave.
    bool heed(const key_press& pressed)
    {
        const size_t rows = screen_.size().rows;
        const size_t page = rows > lines_around_rows ? rows - lines_around_rows : 1;
        const int64_t interval_tv = view_.interval_tv;
        switch (handle_key(view_, pressed, {content_.columns, content_.rows.size(), page})) {
        case key_effect::leave:
            return false;
        case key_effect::mark:
            look_again();
            mark_ = now_;
            break;
        case key_effect::look:
            look_again();
            break;
        case key_effect::show:
            break;
        }
        if (view_.interval_tv != interval_tv) {
            next_look_tv_ = now_tv<monotonic>() + view_.interval_tv;
        }
        return true;
    }

    // The file may be gone, or just be made anew: the figures stay until it can be read again.
    void look_again()
    {
        try {
            look fresh = look_at_data_file(path_);
            before_ = std::exchange(now_, std::move(fresh));
            problem_.clear();
            has_new_look_ = true;
        } catch (const input_error& error) {
            problem_ = error.what();
        }
    }

    void draw()
    {
        const comparison compared{view_.span == span_kind::interval ? &before_
                                  : view_.span == span_kind::mark   ? &mark_
                                                                    : nullptr,
                                  now_};
        if (view_.asked == question::none || has_new_look_) { // typing changes nothing yet
            content_ = build_pane(view_.pane, compared, view_.shown().kept);
            arrange(content_, view_.shown().order);
            has_new_look_ = false;
        }
        screen_.draw(compose_screen(view_, {path_, host_text(now_.file.pid), problem_, compared}, content_,
                                    screen_.size(), ascii_));
    }

    std::string path_;
    bool ascii_;
    top_view view_;
    look now_, before_, mark_;
    std::string problem_;
    pane_content content_;
    bool has_new_look_ = true;
    int64_t next_look_tv_ = 0;
    terminal_screen screen_; // the last member: what fails before it is said on an untouched terminal
};

command_body declare_top(CLI::App& app)
{
    const auto chosen = std::make_shared<top_choice>();
    add_data_file_operand(app, chosen->path);
    app.add_option("-d,--interval", chosen->interval, "Time between two looks (default: 1s)");
    app.add_option("--pane", chosen->pane, "counters (default), errors, metrics or variables")
        ->check(CLI::IsMember(names_in(pane_names)));
    app.add_option("--sort", chosen->sort, "Column to sort by");
    app.add_option("--filter", chosen->pattern, "Only rows with a text that fits the regular expression");
    add_list(app, "--by", chosen->by,
             fmt::format("Merge by key fields: {}; of errors {}", fmt::join(counter_field_names(), ", "),
                         fmt::join(error_field_names(), ", ")));
    app.add_flag("--active", chosen->hide_idle, "Leave out rows without a change");
    auto* const batch =
        app.add_flag("-b,--batch", chosen->batch, "Print tables in place of drawing on the terminal");
    app.add_option("-n,--count", chosen->count, "Batches; 0: until interrupted (default)")->needs(batch);
    app.add_option("--top", chosen->rows, "Rows of a batch (default: all)")->needs(batch);
    add_format_options(app, chosen->format);
    return [chosen](const streams& to) {
        return chosen->batch ? batches(*chosen, to).run() : live_top(*chosen, to).run();
    };
}

} // namespace

const command top_command{"top", "Live view of the counters, errors and metrics of a data file", declare_top};

} // namespace ostrum_tool
