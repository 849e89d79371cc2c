#ifndef OSTRUM_PERF_LOG_AGGREGATION_FILE_NAMES_H
#define OSTRUM_PERF_LOG_AGGREGATION_FILE_NAMES_H
// The names of the files that are written per aggregation period. The functions return whether the name fits;
// one that does not is cut.
#include <cstdint>

#include "config/settings.h"

namespace ostrum {

inline constexpr char trace_extension[] = "plog.txt";
inline constexpr char flist_extension[] = "flog.txt";
inline constexpr char plain_alarm_extension[] = "alarm.txt";
inline constexpr char tagged_alarm_extension[] = "alarm.xml";

struct period_texts {
    const char* start;
    const char* end;
};

// A context's own file, in the log directory; tid is 0 for a keyed one.
bool own_path(char (&path)[path_bytes], int32_t pid, uint64_t tid, period_texts period,
              const char* extension);
// The file that all share in single-file mode.
bool shared_path(char (&path)[path_bytes], period_texts period, const char* extension);

} // namespace ostrum
#endif
