#ifndef OSTRUM_TOOL_PROMETHEUS_EXPOSITION_H
#define OSTRUM_TOOL_PROMETHEUS_EXPOSITION_H
// The two text forms in which Prometheus and its relatives take metrics. No sample has a timestamp: what is
// read now is as of now.
#include <cstdint>
#include <string>
#include <string_view>

namespace ostrum_tool {

enum class exposition_format {
    text_0_0_4,
    openmetrics_1_0,
};
const char* content_type_of(exposition_format format);

enum class metric_kind { counter, gauge, info };

struct metric_family {
    const char* name; // without the ending "_total" or "_info" that its samples get
    metric_kind kind;
    const char* unit; // "", or the ending of the name
    const char* help; // holds nothing that has to be escaped
};

// Families are written one after the other, each once; the samples of one differ in their labels.
class exposition {
public:
    explicit exposition(exposition_format format) : format_(format) {}

    // What follows belongs to this family. Without samples it leaves no trace.
    void begin(const metric_family& family);
    // `labels` as add_label() makes them; `value` a decimal number.
    void sample(std::string_view labels, std::string_view value);
    void sample(std::string_view labels, uint64_t value);
    void sample_seconds(std::string_view labels, uint64_t duration_tv);

    // The whole text. Nothing may follow.
    std::string finish();

private:
    void write_head();

    exposition_format format_;
    const metric_family* family_ = nullptr;
    bool head_is_due_ = false;
    std::string sample_name_;
    std::string text_;
};

// Adds name="text", escaped: control bytes, and what is no UTF-8, as "\xNN". A label without text is left
// out, which means the same.
void add_label(std::string& labels, std::string_view name, std::string_view text);

// ns in seconds, exact: "1.000000005", "12".
std::string seconds_text(uint64_t duration_tv);

} // namespace ostrum_tool
#endif
