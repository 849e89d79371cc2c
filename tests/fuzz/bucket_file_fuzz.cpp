// The bucket file against a second, plain reading of the same text.
#include <algorithm>
#include <map>
#include <vector>

#include "fuzz/fuzz_target.h"
#include "host_access/opcode_names.h"
#include "perf_log/buckets/bucket_file.h"
#include "util/time_value.h"

using namespace ostrum;

namespace {

constexpr size_t longest_line = 510;

struct expected_table {
    int32_t count = 0;
    bool broken = false;                             // by a bad threshold: nothing is taken
    std::map<int32_t, std::vector<int64_t>> entries; // 0 = the default; of an opcode the first
};

std::vector<int64_t> read_thresholds(const std::vector<std::string>& fields, bool& broken)
{
    std::vector<int64_t> thresholds;
    for (size_t at = 1; at < fields.size() && !broken && thresholds.size() < max_thresholds; ++at) {
        if (!fields[at].empty()) {
            thresholds.push_back(ostrum_string_to_tv(fields[at].c_str()));
            broken = thresholds.back() < 0 || fields[at].front() == '-';
        }
    }
    return thresholds;
}

void read_line(std::string line, int32_t& named, expected_table& table)
{
    line = line.substr(0, longest_line).c_str(); // a NUL ends it
    std::replace(line.begin(), line.end(), '\t', ' ');
    if (line.empty() || line.front() == '#') {
        return;
    }
    const std::vector<std::string> fields = fuzz::cut(line, ' ');
    const int32_t opcode = get_opnum(fields[0].c_str());
    if (opcode == 0 ? fields[0] != "*" : named == max_named_entries) {
        return;
    }
    named += opcode != 0 ? 1 : 0;
    const std::vector<int64_t> thresholds = read_thresholds(fields, table.broken);
    if (opcode == 0) {
        table.entries[0] = thresholds;
    } else {
        table.entries.emplace(opcode, thresholds);
    }
}

expected_table read_plainly(std::string_view text)
{
    expected_table table;
    int32_t named = 0;
    for (const std::string& line : fuzz::cut(text, '\n')) {
        if (!table.broken) {
            read_line(line, named, table);
        }
    }
    table.count = table.broken ? 0 : named + static_cast<int32_t>(table.entries.count(0));
    return table;
}

void check_entry(int32_t opcode, const std::vector<int64_t>& thresholds)
{
    const opcode_buckets* entry = find_opcode_buckets(opcode);
    fuzz::must(entry != nullptr && static_cast<int32_t>(entry->opcode) == opcode,
               "an opcode's entry is found", std::to_string(opcode));
    const std::vector<int64_t> found(entry->thresholds, entry->thresholds + entry->threshold_count);
    fuzz::must(found == thresholds, "the thresholds are those of the line", std::to_string(opcode));
    print_opcode_bucket(entry);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    get_opnum("op_read"); // the platform reads its names once
    const fuzz::nothing_left_behind watch;
    const std::string_view text = fuzz::text_of(data, size);
    const expected_table expected = read_plainly(text);
    const int32_t result = read_opcode_buckets(fuzz::file_of(text).c_str());
    fuzz::must(result == (expected.broken ? -1 : expected.count), "the result is the count",
               std::to_string(result));
    fuzz::must(opcode_bucket_count() == expected.count, "the count is that of the lines");
    if (expected.count == 0) {
        fuzz::must(find_opcode_buckets(3) == nullptr, "no table has no entries");
        return 0;
    }
    for (const auto& [opcode, thresholds] : expected.entries) {
        check_entry(opcode, thresholds);
    }
    const bool with_default = expected.entries.count(0) > 0;
    const opcode_buckets* other = find_opcode_buckets(INT32_MIN);
    fuzz::must((other != nullptr) == (with_default || expected.entries.count(INT32_MIN) > 0),
               "other opcodes have the default entry, or none");
    return 0;
}
