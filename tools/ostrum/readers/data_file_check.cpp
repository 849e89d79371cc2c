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
    std::initializer_list<size_t> halves;        // words that hold 32 bits without sign
    std::initializer_list<size_t> signed_halves; // words that hold 32 bits with sign
    std::initializer_list<size_t> durations;     // ns, below 2^63
    bool named;                                  // the first text is the key
};

const entry_rules counter_rules{counter_table,
                                {{counter_at::opname, text_bytes},
                                 {counter_at::program, text_bytes},
                                 {counter_at::fname, text_bytes},
                                 {counter_at::obj_type, text_bytes}},
                                {counter_at::opcode, counter_at::opflags},
                                {counter_at::lineno},
                                {counter_at::total_tv, counter_at::user_cpu_tv, counter_at::sys_cpu_tv},
                                false};
const entry_rules variable_rules{
    variable_table, {{variable_at::name, text_bytes}, {variable_at::value, value_bytes}}, {}, {}, {}, true};
const entry_rules error_rules{error_table,
                              {{error_at::opname, text_bytes}, {error_at::program, text_bytes}},
                              {error_at::opcode, error_at::err_class, error_at::location, error_at::errnum},
                              {},
                              {},
                              false};

class image_check {
public:
    explicit image_check(std::span<const unsigned char> image) : image_(image) {}

    std::vector<data_problem> run()
    {
        if (!image_.has_signature()) {
            add(0, "no signature of this version");
        }
        for (const entry_rules* rules : {&counter_rules, &variable_rules, &error_rules}) {
            check_table(*rules);
        }
        return std::move(problems_);
    }

private:
    void add(uint64_t offset, std::string what) { problems_.push_back({offset, std::move(what)}); }

    void check_table(const entry_rules& rules)
    {
        const table_layout& table = rules.table;
        const std::string overfull = image_.overfull_text(table);
        if (!overfull.empty()) {
            add(table.count_offset, overfull);
        }
        std::map<std::string_view, size_t> names;
        for (size_t entry = 0; entry < image_.entries_in_use(table); ++entry) {
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
            const auto bytes = image_.part(at + field.offset, field.bytes);
            if (std::find(bytes.begin(), bytes.end(), 0) == bytes.end()) {
                add(at + field.offset, name + "text without an end");
            }
        }
        for (const size_t offset : rules.halves) {
            if (image_.word(at + offset) > UINT32_MAX) {
                add(at + offset, name + "number beyond 32 bits");
            }
        }
        for (const size_t offset : rules.signed_halves) {
            if (image_.number(at + offset) != image_.signed_half(at + offset)) {
                add(at + offset, name + "number beyond 32 bits");
            }
        }
        for (const size_t offset : rules.durations) {
            if (image_.word(at + offset) > INT64_MAX) {
                add(at + offset, name + "time out of range");
            }
        }
    }

    [[nodiscard]] std::string_view first_text(const entry_rules& rules, size_t at) const
    {
        const text_field& field = *rules.texts.begin();
        const auto bytes = image_.part(at + field.offset, field.bytes);
        const char* const text = reinterpret_cast<const char*>(bytes.data());
        return {text, strnlen(text, field.bytes)};
    }

    image_view image_;
    std::vector<data_problem> problems_;
};

} // namespace

std::vector<data_problem> check_data_image(std::span<const unsigned char> image)
{
    return image_check(image).run();
}

} // namespace ostrum_tool
