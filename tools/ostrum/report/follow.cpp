#include "report/follow.h"

#include <chrono>
#include <map>
#include <thread>
#include <utility>

#include "output/value_text.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

class followed_files {
public:
    followed_files(const follow_options& options, const record_choice& chosen, const streams& to)
        : options_(options), to_(to), tree_options_(tree_options_of(chosen))
    {}

    // True when there is something new.
    bool read_more()
    {
        std::vector<trace_input> inputs;
        for (const std::string& file : files_named(options_.operands, quiet_).files) {
            add_new_part(file, inputs);
        }
        if (inputs.empty()) {
            return false;
        }
        read_progress progress;
        const trace_set more = read_traces(inputs, tree_options_, progress);
        print_damages(more.damaged, to_);
        damaged_ = damaged_ || !more.damaged.empty();
        set_.tree.merge(more.tree);
        set_.coverage.add(more.coverage);
        set_.coverage.files = static_cast<int64_t>(read_up_to_.size());
        return true;
    }

    [[nodiscard]] const trace_set& set() const { return set_; }
    [[nodiscard]] int status() const { return damaged_ ? exit_damaged : exit_done; }

private:
    void add_new_part(const std::string& file, std::vector<trace_input>& inputs)
    {
        try {
            const uint64_t from = read_up_to_.contains(file) ? read_up_to_[file] : 0;
            if (!look_at_source(file).regular || look_at_source(file).size_bytes <= from) {
                return;
            }
            const auto source = open_source(file, from > 0 ? from - 1 : 0);
            trace_sink nothing; // what counts is where the last complete block ends
            trace_parser parser(nothing);
            parser.read(*source, {from, UINT64_MAX, true});
            if (parser.complete() > from) {
                inputs.push_back({file, from, parser.complete()});
                read_up_to_[file] = parser.complete();
            }
            told_.erase(file);
        } catch (const input_error& error) {
            if (std::exchange(told_[file], error.what()) != error.what()) {
                to_.err << "ostrum: " << printable(error.what()) << "\n";
            }
        }
    }

    const follow_options& options_;
    const streams& to_;
    std::ostream nowhere_{nullptr};
    const streams quiet_{nowhere_, nowhere_, {}, false}; // a directory may be empty, or not be there yet
    tree_options tree_options_;
    std::map<std::string, uint64_t> read_up_to_;
    std::map<std::string, std::string> told_; // why a file cannot be read: it is said once
    trace_set set_;
    bool damaged_ = false;
};

constexpr const char* clear_screen = "\x1b[H\x1b[2J";

} // namespace

int follow_traces(const follow_options& options, const record_choice& chosen, const streams& to,
                  const std::function<void(const trace_set&)>& show)
{
    followed_files files(options, chosen, to);
    const bool clears = to.style.terminal && to.style.colour;
    for (int64_t shown = 0;;) {
        if (files.read_more() && files.set().coverage.operations > 0) {
            to.out << (clears ? clear_screen : shown > 0 ? "\n" : "");
            show(files.set());
            ++shown;
        }
        if (!to.out.flush() || (options.count > 0 && shown >= options.count)) {
            return files.status();
        }
        std::this_thread::sleep_for(std::chrono::nanoseconds(options.interval_tv));
    }
}

} // namespace ostrum_tool
