#ifndef OSTRUM_TESTS_TOOL_REPORT_FIGURES_H
#define OSTRUM_TESTS_TOOL_REPORT_FIGURES_H
#include <string>

#include <nlohmann/json.hpp>

#include "tool/tool_fixture.h"

namespace tool_test {

// What a database is asked for, and the answer that the report gives: a line a path, by level and total.
inline const std::string figures_question =
    "select calls || '|' || errors || '|' || records || '|' || total_ns || '|' || self_ns || '|' || min_ns"
    " || '|' || average_ns || '|' || max_ns from trace_report order by level, total_ns";

inline std::string report_figures(const std::string& traces, const std::string& line_end)
{
    std::string figures;
    const auto report = nlohmann::json::parse(run({"report", "--json", traces}).out);
    for (const auto& row : report.at("rows")) {
        figures += std::to_string(row.at("calls").get<int64_t>());
        for (const char* key :
             {"errors", "records", "total_ns", "self_ns", "min_ns", "average_ns", "max_ns"}) {
            figures += "|" + std::to_string(row.at(key).get<int64_t>());
        }
        figures += line_end;
    }
    return figures;
}

} // namespace tool_test
#endif
