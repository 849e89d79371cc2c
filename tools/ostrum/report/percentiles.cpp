#include "report/percentiles.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace ostrum_tool {
namespace {

struct weighted_bound {
    int64_t bound_tv;
    int64_t calls;
};

// The k-th smallest of the bounds, each counted as often as it has calls.
int64_t bound_at_rank(std::vector<weighted_bound> bounds, int64_t rank)
{
    std::sort(bounds.begin(), bounds.end(),
              [](const weighted_bound& a, const weighted_bound& b) { return a.bound_tv < b.bound_tv; });
    int64_t counted = 0;
    for (const weighted_bound& each : bounds) {
        add_bounded(counted, each.calls);
        if (counted >= rank) {
            return each.bound_tv;
        }
    }
    return bounds.back().bound_tv;
}

} // namespace

// Each call lies between the bounds of its bucket, so the k-th shortest call lies between the k-th smallest
// lower bound and the k-th smallest upper bound, even where buckets of several configurations overlap.
std::optional<duration_interval> percentile(const call_node& node, double percent)
{
    std::vector<weighted_bound> lower;
    std::vector<weighted_bound> upper;
    int64_t counted = 0;
    for (const duration_bucket& bucket : node.buckets) {
        const totals& sums = bucket.sums;
        if (sums.calls <= 0) {
            continue;
        }
        // The shortest one is known only of calls without error.
        lower.push_back(
            {sums.errors == 0 ? std::max(bucket.from_tv, sums.min_tv) : bucket.from_tv, sums.calls});
        upper.push_back({bucket.to_tv == 0 ? sums.max_tv : std::min(bucket.to_tv, sums.max_tv), sums.calls});
        add_bounded(counted, sums.calls);
    }
    if (counted == 0) {
        return std::nullopt;
    }
    if (node.sums.calls > counted) {
        lower.push_back({0, node.sums.calls - counted});
        upper.push_back({node.sums.max_tv, node.sums.calls - counted});
        counted = node.sums.calls;
    }
    // Compared as it is: the largest count, rounded, is more than an integer can hold.
    const double rank = std::ceil(static_cast<double>(counted) * percent / 100.0);
    const int64_t at =
        rank >= static_cast<double>(counted) ? counted : std::max<int64_t>(static_cast<int64_t>(rank), 1);
    return duration_interval{bound_at_rank(lower, at), bound_at_rank(upper, at)};
}

} // namespace ostrum_tool
