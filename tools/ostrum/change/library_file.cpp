#include "change/library_file.h"

#include <cstdlib>

#include "readers/data_file.h"
#include "readers/data_locks.h"
#include "tool_errors.h"

namespace ostrum_tool {

library_file open_with_locks(const std::string& path)
{
    const bool advisory = lock_method_of(read_data_image(path)) == lock_marks::advisory;
    ::setenv("OSTRUM_LOCK_METHOD", advisory ? "1" : "0", 0);
    library_file file(ostrum_data_file_open(path.c_str()));
    if (!file) {
        throw input_error(path + ": the library could not open it");
    }
    return file;
}

} // namespace ostrum_tool
