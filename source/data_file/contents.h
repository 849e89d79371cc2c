#ifndef OSTRUM_DATA_FILE_CONTENTS_H
#define OSTRUM_DATA_FILE_CONTENTS_H
#include "data_file/data_file.h"

namespace ostrum {

// Empties the tables, sets the initial variables from the settings "ostrum_var_..." and clears the process
// metrics. The table lock must be initialised; it is taken for the variables only (kept), so a process
// that already uses the file may see the tables half reset.
void reset_contents(rt_info& handle);

} // namespace ostrum
#endif
