#include "prometheus/exposition.h"

#include <algorithm>

#include <fmt/format.h>

#include "output/value_text.h"
#include "readers/time_units.h"

namespace ostrum_tool {
namespace {

const char* ending_of(metric_kind kind)
{
    return kind == metric_kind::counter ? "_total" : kind == metric_kind::info ? "_info" : "";
}

const char* type_name(metric_kind kind, exposition_format format)
{
    if (kind == metric_kind::info && format == exposition_format::text_0_0_4) {
        return "gauge"; // that form knows no other
    }
    return kind == metric_kind::counter ? "counter" : kind == metric_kind::info ? "info" : "gauge";
}

bool is_plain(std::string_view text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return c >= ' ' && c <= '~' && c != '\\' && c != '"'; });
}

} // namespace

const char* content_type_of(exposition_format format)
{
    return format == exposition_format::openmetrics_1_0
               ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
               : "text/plain; version=0.0.4; charset=utf-8";
}

void exposition::begin(const metric_family& family)
{
    family_ = &family;
    sample_name_ = std::string(family.name) + ending_of(family.kind);
    head_is_due_ = true;
}

// OpenMetrics names the family, the older form the samples.
void exposition::write_head()
{
    const bool openmetrics = format_ == exposition_format::openmetrics_1_0;
    const std::string name = openmetrics ? family_->name : sample_name_;
    text_ += fmt::format("# HELP {0} {1}\n# TYPE {0} {2}\n", name, family_->help,
                         type_name(family_->kind, format_));
    if (openmetrics && *family_->unit != '\0') {
        text_ += fmt::format("# UNIT {} {}\n", name, family_->unit);
    }
    head_is_due_ = false;
}

void exposition::sample(std::string_view labels, std::string_view value)
{
    if (head_is_due_) {
        write_head();
    }
    text_ += sample_name_;
    if (!labels.empty()) {
        text_ += '{';
        text_ += labels;
        text_ += '}';
    }
    text_ += ' ';
    text_ += value;
    text_ += '\n';
}

void exposition::sample(std::string_view labels, uint64_t value)
{
    const fmt::format_int digits(value);
    sample(labels, std::string_view(digits.data(), digits.size()));
}

void exposition::sample_seconds(std::string_view labels, uint64_t duration_tv)
{
    sample(labels, seconds_text(duration_tv));
}

std::string exposition::finish()
{
    if (format_ == exposition_format::openmetrics_1_0) {
        text_ += "# EOF\n";
    }
    return std::move(text_);
}

void add_label(std::string& labels, std::string_view name, std::string_view text)
{
    if (text.empty()) {
        return;
    }
    labels += labels.empty() ? "" : ",";
    labels += name;
    labels += "=\"";
    if (is_plain(text)) {
        labels += text;
    } else {
        for (const char c : printable(text)) {
            labels += c == '\\' || c == '"' ? "\\" : "";
            labels += c;
        }
    }
    labels += '"';
}

std::string seconds_text(uint64_t duration_tv)
{
    constexpr uint64_t second_tv{ns_per_second};
    std::string text = fmt::format("{}.{:09}", duration_tv / second_tv, duration_tv % second_tv);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') {
        text.pop_back();
    }
    return text;
}

} // namespace ostrum_tool
