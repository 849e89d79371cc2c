#include "export/stacks.h"

#include <map>

#include "output/table.h"
#include "output/value_text.h"

namespace ostrum_tool {
namespace {

using nlohmann::ordered_json;

int64_t weight_of(const call_profile& profile, node_index index, stack_weight weight)
{
    const call_node& node = profile.tree.at(index);
    return weight == stack_weight::self_tv ? profile.self_tv[index] : node.key.is_group ? 0 : node.sums.calls;
}

std::string frame_text(const path_key& key)
{
    std::string text = key.is_group ? std::string(key.opname) : operation_text(key.opname, key.opcode);
    for (char& c : text) {
        c = c == ';' ? ':' : c;
    }
    return text;
}

// Calls `visit` with each visible node and the numbers of the nodes from the outermost down to it.
template <typename Visit>
void visit_stacks(const call_profile& profile, const std::vector<bool>& visible, Visit visit)
{
    std::vector<node_index> pending{call_tree::root};
    std::vector<node_index> stack;
    while (!pending.empty()) {
        const node_index index = pending.back();
        pending.pop_back();
        if (index != call_tree::root) {
            stack.resize(static_cast<size_t>(profile.tree.at(index).depth));
            stack.push_back(index);
            visit(index, stack);
        }
        const std::vector<node_index> children = sorted_children(profile, index, by_name);
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            if (visible[*child]) {
                pending.push_back(*child);
            }
        }
    }
}

// The frames that speedscope files share between profiles.
class frame_table {
public:
    size_t number_of(const path_key& key)
    {
        ordered_json frame = {{"name", frame_text(key)}};
        if (!key.fname.empty()) {
            frame["file"] = std::string(key.fname);
            if (key.lineno > 0) {
                frame["line"] = key.lineno;
            }
        }
        const auto [place, added] = numbers_.try_emplace(json_text(frame), numbers_.size());
        if (added) {
            frames_.push_back(std::move(frame));
        }
        return place->second;
    }
    [[nodiscard]] const ordered_json& frames() const { return frames_; }

private:
    std::map<std::string, size_t> numbers_;
    ordered_json frames_ = ordered_json::array();
};

ordered_json new_profile(const std::string& name, stack_weight weight)
{
    return {{"type", "sampled"},
            {"name", name},
            {"unit", weight == stack_weight::self_tv ? "nanoseconds" : "none"},
            {"startValue", 0},
            {"endValue", 0},
            {"samples", ordered_json::array()},
            {"weights", ordered_json::array()}};
}

} // namespace

void write_collapsed(std::ostream& out, const call_profile& profile, const std::vector<bool>& visible,
                     stack_weight weight)
{
    visit_stacks(profile, visible, [&](node_index index, const std::vector<node_index>& stack) {
        const int64_t value = weight_of(profile, index, weight);
        if (value <= 0) {
            return;
        }
        const char* separator = "";
        for (const node_index each : stack) {
            out << separator << frame_text(profile.tree.at(each).key);
            separator = ";";
        }
        out << " " << value << "\n";
    });
}

void write_speedscope(std::ostream& out, const call_profile& profile, const std::vector<bool>& visible,
                      stack_weight weight, const std::string& name)
{
    frame_table frames;
    std::vector<ordered_json> profiles;
    std::vector<size_t> stack_frames;
    visit_stacks(profile, visible, [&](node_index index, const std::vector<node_index>& stack) {
        const call_node& node = profile.tree.at(index);
        if (profiles.empty() || (node.depth == 0 && node.key.is_group)) {
            profiles.push_back(new_profile(node.key.is_group ? std::string(node.key.opname) : name, weight));
        }
        stack_frames.resize(stack.size() - 1);
        stack_frames.push_back(frames.number_of(node.key));
        const int64_t value = weight_of(profile, index, weight);
        if (value > 0 && !node.key.is_group) {
            const bool grouped = profile.tree.at(stack.front()).key.is_group;
            ordered_json& target = profiles.back();
            target["samples"].push_back(
                std::vector<size_t>(stack_frames.begin() + (grouped ? 1 : 0), stack_frames.end()));
            target["weights"].push_back(value);
            target["endValue"] = target["endValue"].get<int64_t>() + value;
        }
    });
    const ordered_json file = {{"$schema", "https://www.speedscope.app/file-format-schema.json"},
                               {"name", name},
                               {"exporter", "ostrum"},
                               {"activeProfileIndex", 0},
                               {"shared", {{"frames", frames.frames()}}},
                               {"profiles", profiles}};
    out << json_text(file) << "\n";
}

} // namespace ostrum_tool
