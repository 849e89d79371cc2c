#ifndef OSTRUM_DATA_FILE_STUCK_LOCKS_H
#define OSTRUM_DATA_FILE_STUCK_LOCKS_H
// The lock slots that this process waited for in vain. Their holder is most likely dead, so they are only
// tried from then on, not waited for, until a try succeeds. Addresses, never followed. Any thread; takes
// no lock.
#include "data_file/layout.h"

namespace ostrum {

void remember_stuck(const lock_slot& slot);
// True also for any slot when so many are stuck that no further one can be remembered.
bool counts_as_stuck(const lock_slot& slot);
void forget_stuck(const lock_slot& slot);               // one load when none is stuck
void forget_stuck_within(const data_file_image* image); // the mapping ends; its addresses may come again

} // namespace ostrum
#endif
