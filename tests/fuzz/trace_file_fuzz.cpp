// The tool's reader of trace data files: paths nest whatever the file holds, sums count what was told, and an
// undamaged file gives the same in two parts as in one.
#include <algorithm>
#include <vector>

#include "fuzz/fuzz_target.h"
#include "readers/byte_source.h"
#include "readers/trace_parser.h"
#include "readers/tree_builder.h"
#include "tool_errors.h"

using namespace ostrum_tool;

namespace {

// Checks what the parser tells, and hands it on.
class checking_sink final : public trace_sink {
public:
    explicit checking_sink(tree_builder& builder) : builder_(builder) {}

    void on_frame(const start_record& frame, uint64_t offset) override
    {
        fuzz::must(open_paths_ == 0, "no path is open around a period frame");
        check_offset(offset);
        ++frames_;
        builder_.on_frame(frame, offset);
    }
    void on_frame_end(const figures& record) override
    {
        fuzz::must(open_paths_ == 0, "no path is open at the end of a period frame");
        plain_ = plain_ && record.total_calls == 1 && record.total_recs == 0 && record.min_tv == 0 &&
                 record.max_tv == 0;
        --frames_;
        builder_.on_frame_end(record);
    }
    void on_path(const start_record& path, uint64_t offset, bool missing) override
    {
        fuzz::must(path.level == ++open_paths_, "a path is one level below the one that is open");
        check_offset(offset);
        builder_.on_path(path, offset, missing);
    }
    void on_figures(const figures& record) override
    {
        close_path();
        add_bounded(calls_, record.total_calls);
        builder_.on_figures(record);
    }
    void on_lost() override
    {
        close_path();
        builder_.on_lost();
    }
    void on_bucket(int32_t number, uint64_t offset, const figures& record) override
    {
        fuzz::must(open_paths_ > 0 && number > 0, "a bucket belongs to a path");
        builder_.on_bucket(number, offset, record);
    }
    void on_damage(uint64_t offset, const std::string& what) override
    {
        fuzz::must(!what.empty(), "damage has a description");
        plain_ = false;
        builder_.on_damage(offset, what);
    }

    void check_end() const { fuzz::must(open_paths_ == 0, "at the end every path is closed"); }
    // Nothing in it is damaged, open or open to doubt.
    [[nodiscard]] bool is_plain() const { return plain_ && frames_ == 0; }
    [[nodiscard]] int64_t calls() const { return calls_; }

private:
    void check_offset(uint64_t offset)
    {
        fuzz::must(offset >= last_offset_, "records are told in their order");
        last_offset_ = offset;
    }
    void close_path() { fuzz::must(--open_paths_ >= 0, "only what is open is closed"); }

    tree_builder& builder_;
    uint64_t last_offset_ = 0;
    int32_t open_paths_ = 0;
    int64_t frames_ = 0;
    int64_t calls_ = 0;
    bool plain_ = true;
};

void read_range(const std::string& file, const trace_range& range, trace_sink& sink)
{
    const auto source = open_source(file, range.begin > 0 ? range.begin - 1 : 0);
    trace_parser(sink).read(*source, range);
}

totals sum_of(const call_tree& tree)
{
    totals sums;
    for (node_index node = 1; node < tree.size(); ++node) {
        sums.add(tree.at(node).sums);
        fuzz::must(tree.at(node).parent < node, "parents stand before their children");
        fuzz::must(std::is_sorted(tree.at(node).buckets.begin(), tree.at(node).buckets.end(),
                                  [](const duration_bucket& one, const duration_bucket& other) {
                                      return std::pair(one.from_tv, one.to_tv) <
                                             std::pair(other.from_tv, other.to_tv);
                                  }),
                   "buckets are in order");
    }
    return sums;
}

void check_in_parts(const std::string& file, uint64_t cut, const call_tree& whole,
                    const tree_options& options)
{
    tree_builder builder(options);
    read_range(file, {0, cut}, builder);
    read_range(file, {cut, UINT64_MAX}, builder);
    const call_tree parts = builder.take_tree();
    fuzz::must(builder.finish_text().count == 0, "no part of an undamaged file is damaged");
    fuzz::must(parts.size() == whole.size(), "two parts have the paths of the whole");
    for (node_index node = 1; node < whole.size(); ++node) {
        fuzz::must(parts.at(node).key == whole.at(node).key &&
                       parts.at(node).sums.calls == whole.at(node).sums.calls &&
                       parts.at(node).sums.total_tv == whole.at(node).sums.total_tv &&
                       parts.at(node).buckets.size() == whole.at(node).buckets.size(),
                   "two parts have the sums of the whole");
    }
}

} // namespace

// A byte that says how it is read, one that says where it is cut in two, then the file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const int far_east = setenv("TZ", "<+14>-14", 1);
    if (size < 2 || far_east != 0) {
        return 0;
    }
    const fuzz::nothing_left_behind watch;
    tree_options options;
    options.brief = (data[0] & 1) != 0;
    options.by = static_cast<grouping>(data[0] / 2 % 4);
    const std::string file = fuzz::file_of(fuzz::text_of(data + 2, size - 2));
    tree_builder builder(options);
    checking_sink sink(builder);
    try {
        read_range(file, {}, sink);
    } catch (const damaged_input&) { // compressed, and not as it should be
        return 0;
    }
    sink.check_end();
    const call_tree tree = builder.take_tree();
    const totals sums = sum_of(tree);
    fuzz::must(builder.coverage().left_out == 0, "without a filter nothing is left out");
    fuzz::must(sums.calls == sink.calls() || tree.is_full() || sums.calls < 0 || sums.calls == INT64_MAX,
               "all calls are in the tree", std::to_string(sink.calls()));
    const uint64_t cut = data[1] * (size - 2) / 256;
    if (sink.is_plain() && cut > 0 && look_at_source(file).regular) {
        check_in_parts(file, cut, tree, options);
    }
    return 0;
}
