#include "readers/trace_set.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <thread>

#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr uint64_t part_bytes = 16UL * 1024 * 1024; // large files are read in parts of this size
constexpr int growth_waits = 10;
constexpr auto growth_wait = std::chrono::milliseconds(20);

// A part of one input: blocks that begin within the range are read, whatever else reads the same file.
struct work_part {
    size_t input = 0; // its number
    trace_range range;
    bool live = false; // the end may be in the writing
};

// Tells how much went through, and hides what stands behind a limit.
class metered_source final : public byte_source {
public:
    metered_source(std::unique_ptr<byte_source> from, uint64_t limit_bytes, read_progress& progress)
        : from_(std::move(from)), left_bytes_(limit_bytes), progress_(progress)
    {}
    size_t read(std::span<char> into) override
    {
        const size_t got = from_->read(into.first(std::min<uint64_t>(into.size(), left_bytes_)));
        left_bytes_ -= got;
        progress_.bytes.fetch_add(got, std::memory_order_relaxed);
        return got;
    }

private:
    std::unique_ptr<byte_source> from_;
    uint64_t left_bytes_;
    read_progress& progress_;
};

bool changed_lately(const std::string& path)
{
    std::error_code error;
    const auto changed = std::filesystem::last_write_time(path, error);
    return !error && std::filesystem::file_time_type::clock::now() - changed < std::chrono::seconds(2);
}

struct part_outcome {
    damage_list damages;
    int64_t open_frames = 0;
    uint64_t last_frame = 0;
};

// What all workers share: the list of parts, from which each takes the next, and where the outcome goes.
class reading {
public:
    reading(const std::vector<trace_input>& inputs, const tree_options& options, read_progress& progress)
        : inputs_(inputs), options_(options), progress_(progress), failures_(inputs.size())
    {
        for (size_t number = 0; number < inputs.size(); ++number) {
            plan(number);
        }
        outcomes_.resize(parts_.size());
    }

    trace_set run()
    {
        const size_t processors = std::max(1U, std::thread::hardware_concurrency());
        std::vector<std::thread> helpers;
        for (size_t more = 1; more < std::min(processors, parts_.size()); ++more) {
            helpers.emplace_back([this] { work(); });
        }
        work();
        for (std::thread& helper : helpers) {
            helper.join();
        }
        collect();
        return std::move(result_);
    }

private:
    void plan(size_t number)
    {
        const trace_input& input = inputs_[number];
        try {
            const source_facts facts = look_at_source(input.file);
            progress_.all_bytes += facts.size_bytes - std::min(facts.size_bytes, input.from);
            uint64_t begin = input.from;
            while (facts.regular && std::min(facts.size_bytes, input.to) > begin + part_bytes) {
                parts_.push_back({number, {begin, begin + part_bytes, begin == input.from}});
                begin += part_bytes;
            }
            parts_.push_back(
                {number, {begin, UINT64_MAX, begin == input.from}, facts.regular && input.to == UINT64_MAX});
        } catch (const input_error& error) {
            failures_[number] = error.what();
        }
    }

    void work()
    {
        tree_builder builder(options_);
        for (size_t at = next_++; at < parts_.size(); at = next_++) {
            try {
                read_part(parts_[at], builder, outcomes_[at]);
            } catch (const damaged_input& error) {
                outcomes_[at].damages.add(0, error.what());
            } catch (const std::exception& error) {
                const std::lock_guard guard(lock_);
                failures_[parts_[at].input] = error.what();
            }
            outcomes_[at].damages.add(builder.finish_text());
        }
        const std::lock_guard guard(lock_);
        if (std::exchange(has_tree_, true)) {
            result_.tree.merge(builder.take_tree());
        } else {
            result_.tree = builder.take_tree();
        }
        result_.coverage.add(builder.coverage());
    }

    void read_part(const work_part& part, tree_builder& builder, part_outcome& outcome)
    {
        const trace_input& input = inputs_[part.input];
        const uint64_t first = part.range.begin > 0 ? part.range.begin - 1 : 0;
        metered_source source(open_source(input.file, first), input.to - std::min(input.to, first),
                              progress_);
        trace_parser parser(builder);
        if (part.live && changed_lately(input.file)) {
            parser.may_have_grown = [waits = 0]() mutable {
                std::this_thread::sleep_for(growth_wait);
                return ++waits <= growth_waits;
            };
        }
        parser.read(source, part.range);
        outcome.open_frames = parser.open_frames();
        outcome.last_frame = parser.last_frame();
    }

    void collect()
    {
        std::vector<part_outcome> of_input(inputs_.size());
        for (size_t at = 0; at < parts_.size(); ++at) {
            part_outcome& sum = of_input[parts_[at].input];
            sum.damages.add(outcomes_[at].damages);
            sum.open_frames += outcomes_[at].open_frames;
            sum.last_frame = std::max(sum.last_frame, outcomes_[at].last_frame);
        }
        for (size_t number = 0; number < inputs_.size(); ++number) {
            part_outcome& sum = of_input[number];
            if (!failures_[number].empty()) {
                result_.unreadable.push_back(failures_[number]);
            } else if (sum.open_frames > 0) {
                sum.damages.add(sum.last_frame,
                                "block without an end, one of " + std::to_string(sum.open_frames));
            }
            if (sum.damages.count > 0) {
                result_.damaged.push_back({inputs_[number].file, std::move(sum.damages)});
            }
            result_.coverage.files += failures_[number].empty() ? 1 : 0;
        }
        result_.bytes = progress_.bytes;
    }

    const std::vector<trace_input>& inputs_;
    const tree_options& options_;
    read_progress& progress_;
    std::vector<work_part> parts_;
    std::vector<part_outcome> outcomes_; // of each part, by its number; one worker writes each
    std::vector<std::string> failures_;  // of each input; empty = none
    std::atomic<size_t> next_{0};
    std::mutex lock_; // guards result_, has_tree_ and failures_ while workers run
    trace_set result_;
    bool has_tree_ = false;
};

} // namespace

trace_set read_traces(const std::vector<trace_input>& inputs, const tree_options& options,
                      read_progress& progress)
{
    return reading(inputs, options, progress).run();
}

std::vector<std::string> trace_files_of(const std::string& path, const std::string& ending)
{
    namespace fs = std::filesystem;
    std::error_code error;
    if (path == "-" || !fs::is_directory(path, error)) {
        return {path}; // whether it can be read shows when it is
    }
    std::vector<std::string> files;
    for (fs::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().string();
        if (name.ends_with(ending) || name.ends_with(ending + ".gz") || name.ends_with(ending + ".zst")) {
            files.push_back(name);
        }
    }
    if (error) {
        throw input_error(path + ": " + error.message());
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace ostrum_tool
