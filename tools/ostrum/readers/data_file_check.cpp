#include <algorithm>
#include <cstring>
#include <map>

#include "readers/data_file.h"
#include "readers/data_layout.h"

namespace ostrum_tool {
namespace {

// Where an entry of a table holds what.
struct text_field {
    size_t offset, bytes;
};
struct entry_rules {
    const table_layout& table;
    std::initializer_list<text_field> texts;
    std::initializer_list<size_t> halves;    // words that hold 32 bits without sign
    std::initializer_list<size_t> durations; // ns, below 2^63
    bool named;                              // the first text is the key
};

const entry_rules counter_rules{
    counter_table, {{64, 128}, {192, 128}, {320, 128}, {448, 128}}, {576}, {624, 632, 640}, false};
const entry_rules variable_rules{variable_table, {{64, 128}, {192, 1024}}, {}, {}, true};
const entry_rules error_rules{error_table, {{16, 128}, {144, 128}}, {8, 288}, {}, false};

class image_check {
public:
    explicit image_check(std::span<const unsigned char> image) : image_(image) {}

    std::vector<data_problem> run()
    {
        if (std::memcmp(image_.data(), data_signature, sizeof(data_signature)) != 0) {
            add(0, "no signature of this version");
        }
        for (const entry_rules* rules : {&counter_rules, &variable_rules, &error_rules}) {
            check_table(*rules);
        }
        return std::move(problems_);
    }

private:
    void add(uint64_t offset, std::string what) { problems_.push_back({offset, std::move(what)}); }

    [[nodiscard]] uint64_t word(size_t offset) const
    {
        uint64_t value = 0;
        std::memcpy(&value, image_.data() + offset, sizeof(value));
        return value;
    }

    void check_table(const entry_rules& rules)
    {
        const table_layout& table = rules.table;
        const uint64_t claimed = word(table.count_offset);
        if (claimed > table.entries) {
            add(table.count_offset, "claims " + std::to_string(claimed) + " " + table.name + ", of " +
                                        std::to_string(table.entries) + " at most");
        }
        std::map<std::string_view, size_t> names;
        for (size_t entry = 0; entry < std::min<uint64_t>(claimed, table.entries); ++entry) {
            const size_t at = table.offset + entry * table.entry_bytes;
            const std::string name = std::string(table.name) + " entry " + std::to_string(entry) + ": ";
            check_entry(rules, at, name);
            const auto [same, is_new] = names.try_emplace(first_text(rules, at), entry);
            if (rules.named && !is_new) {
                add(at, name + "the same name as entry " + std::to_string(same->second));
            }
        }
    }

    void check_entry(const entry_rules& rules, size_t at, const std::string& name)
    {
        for (const text_field& field : rules.texts) {
            const auto bytes = image_.subspan(at + field.offset, field.bytes);
            if (std::find(bytes.begin(), bytes.end(), 0) == bytes.end()) {
                add(at + field.offset, name + "text without an end");
            }
        }
        for (const size_t offset : rules.halves) {
            if (word(at + offset) > UINT32_MAX) {
                add(at + offset, name + "number beyond 32 bits");
            }
        }
        for (const size_t offset : rules.durations) {
            if (word(at + offset) > INT64_MAX) {
                add(at + offset, name + "time out of range");
            }
        }
    }

    [[nodiscard]] std::string_view first_text(const entry_rules& rules, size_t at) const
    {
        const text_field& field = *rules.texts.begin();
        const char* const text = reinterpret_cast<const char*>(image_.data()) + at + field.offset;
        return {text, strnlen(text, field.bytes)};
    }

    std::span<const unsigned char> image_;
    std::vector<data_problem> problems_;
};

} // namespace

std::vector<data_problem> check_data_image(std::span<const unsigned char> image)
{
    return image_check(image).run();
}

} // namespace ostrum_tool
