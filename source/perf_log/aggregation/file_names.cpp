#include "perf_log/aggregation/file_names.h"

#include <cstdio>

#include "util/text.h"

namespace ostrum {

namespace {

bool fits(int length)
{
    return length >= 0 && length < path_bytes;
}

} // namespace

bool own_path(char (&path)[path_bytes], int32_t pid, uint64_t tid, period_texts period, const char* extension)
{
    return fits(snprintf(path, sizeof(path), "%s/%d_%lu.%s.%s.%s", text_or_empty(configured().log_directory),
                         pid, tid, period.start, period.end, extension));
}

bool shared_path(char (&path)[path_bytes], period_texts period, const char* extension)
{
    return fits(snprintf(path, sizeof(path), "%s.%s.%s.%s", configured().single_file_base, period.start,
                         period.end, extension));
}

} // namespace ostrum
