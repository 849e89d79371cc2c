#ifndef OSTRUM_PERF_LOG_BUCKETS_BUCKET_FILE_H
#define OSTRUM_PERF_LOG_BUCKETS_BUCKET_FILE_H
// The opcode bucket table: per opcode, the elapsed-time bounds by which its calls are classified.
// Filled once at start-up, read without a lock afterwards.
#include <cstdint>

#include "perf_log/buckets/opcode_table.h"

namespace ostrum {

inline constexpr int32_t max_thresholds = 100;

struct opcode_buckets {
    uint32_t opcode; // unused_opcode = free entry; 0 = the default entry
    int32_t threshold_count;
    int64_t thresholds[max_thresholds]; // ns, in the order of the file
};

// The entry of the opcode, else the default entry, else null.
const opcode_buckets* find_opcode_buckets(int32_t opcode);

// -1: no bucket file is configured; else named entries plus one for a default entry.
int32_t opcode_bucket_count();

} // namespace ostrum

extern "C" {
// Clears the table and loads it from the file. A file that cannot be opened leaves no buckets and
// returns 0; a bad threshold leaves none and returns -1; otherwise the count.
int32_t read_opcode_buckets(const char* path);
void print_opcode_bucket(const ostrum::opcode_buckets* entry);
}
#endif
