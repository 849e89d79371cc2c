#ifndef OSTRUM_DATA_FILE_SNAPSHOT_H
#define OSTRUM_DATA_FILE_SNAPSHOT_H
// Lists of copied records for monitoring tools: an array of record addresses with a null behind the last.
// All records of a list are one heap block, which the first address points to. Null, with a count of 0,
// when there is nothing, for a null handle and, after diagnostic lines, when memory is short; a reset may
// have happened even then.
#include <cstdint>

#include "data_file/data_file.h"
#include "os/os_calls.h"

namespace ostrum {

counter_entry** counter_list(rt_info* handle, int32_t reset, int32_t* count);
error_entry** error_list(rt_info* handle, int32_t reset, int32_t* count);
variable_entry** variable_list(rt_info* handle, const char* name, int32_t* count);

// Merged by the kept key fields; 0 keeps the records as they are.
counter_entry** aggregated_counter_list(rt_info* handle, int32_t reset, int32_t* count, uint32_t kept);
error_entry** aggregated_error_list(rt_info* handle, int32_t reset, int32_t* count, uint32_t kept);

template <typename Record>
void destroy_list(Record** list)
{
    if (list != nullptr) {
        os::release(list[0]);
        os::release(list);
    }
}

} // namespace ostrum
#endif
