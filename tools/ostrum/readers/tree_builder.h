#ifndef OSTRUM_TOOL_READERS_TREE_BUILDER_H
#define OSTRUM_TOOL_READERS_TREE_BUILDER_H
// Sums up what a trace parser tells into a call tree: which records count, what stands above them, and
// what the period frames tell about the input.
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "readers/call_tree.h"
#include "readers/damage_list.h"
#include "readers/record_filter.h"
#include "readers/trace_parser.h"

namespace ostrum_tool {

enum class grouping { none, thread, process, period };

struct tree_options {
    bool brief = false; // paths that differ only in flags, program, source, type or database become one
    grouping by = grouping::none;
    int64_t period_tv = 3'600'000'000'000; // of grouping::period
    record_filter filter;
};

// What the period frames of the input tell.
struct trace_coverage {
    static constexpr size_t most_remembered = 100'000; // threads; of more than these the number is not known

    int64_t files = 0;
    int64_t flushes = 0;                             // period frames
    int64_t operations = 0;                          // figures of paths that were summed up
    int64_t left_out = 0;                            // figures of paths that the filter left out
    std::set<std::pair<uint32_t, uint64_t>> threads; // (pid, tid)
    int64_t from_tv = 0;                             // ns since the epoch; 0 = unknown
    int64_t to_tv = 0;

    void add(const trace_coverage& other);
    [[nodiscard]] size_t processes() const;
};

class tree_builder final : public trace_sink {
public:
    explicit tree_builder(const tree_options& options) : options_(options) {}

    void on_frame(const start_record& frame, uint64_t offset) override;
    void on_frame_end(const figures& record) override;
    void on_path(const start_record& path, uint64_t offset, bool missing) override;
    void on_figures(const figures& record) override;
    void on_lost() override;
    void on_bucket(int32_t number, uint64_t offset, const figures& record) override;
    void on_damage(uint64_t offset, const std::string& what) override { damages_.add(offset, what); }

    [[nodiscard]] call_tree take_tree() { return std::move(tree_); }
    [[nodiscard]] const trace_coverage& coverage() const { return coverage_; }
    // Ends one text, whatever is open in it, and gives its damages.
    [[nodiscard]] damage_list finish_text()
    {
        open_.clear();
        return std::exchange(damages_, {});
    }

private:
    [[nodiscard]] bool counts(const start_record& path) const;
    [[nodiscard]] bool frame_counts() const;
    node_index group_of(const start_record& path);
    node_index group_named(const std::string& name);

    const tree_options& options_;
    call_tree tree_;
    trace_coverage coverage_;
    damage_list damages_;
    std::vector<node_index> open_; // the root stands for paths that do not count
    int64_t period_from_tv_ = 0;   // of the last frame
};

} // namespace ostrum_tool
#endif
