// The exported entries of ostrum_data.h that open, close and describe a data file.
#include "ostrum_data.h"

#include "data_file/data_file.h"
#include "startup/initialise.h"

rt_info* ostrum_data_file_get(void)
{
    (void)__ostrum_init(1);
    return __ostrum_get_data_file_handle();
}

rt_info* ostrum_data_file_open(const char* path)
{
    (void)__ostrum_init(1);
    return __perf_data_file_open(path, DATA_FILE_MUST_EXIST);
}

void ostrum_data_file_close(rt_info* file)
{
    if (file != nullptr) {
        __perf_data_file_close(file, 0);
    }
}

int32_t ostrum_data_file_get_pid(const rt_info* file)
{
    return file != nullptr ? static_cast<int32_t>(file->image->pid) : 0;
}

const char* ostrum_data_file_get_version(const rt_info* file)
{
    return file != nullptr ? file->image->signature : nullptr;
}
