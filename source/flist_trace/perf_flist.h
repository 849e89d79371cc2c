#ifndef OSTRUM_FLIST_TRACE_PERF_FLIST_H
#define OSTRUM_FLIST_TRACE_PERF_FLIST_H
// The timings of one outermost operation as a field list, which goes back to its caller inside the
// operation's output list.
#include <cstdint>

#include "ostrum_util.h"

extern "C" {
// Walk callback: adds the node to the list as one element, with what it called as elements inside. `single`
// is the node's depth in its tree; 1 also prints the element when debugging. 1, or 0 after one diagnostic
// line.
int32_t build_perf_flist(void* node, void* flist, int32_t single);
}

namespace ostrum {

// Puts the list of the tree's operations into the output list, which then owns it; without one it is shown
// when debugging, and destroyed.
void return_perf_flist(bt_tree* tree, void* out_flist);

} // namespace ostrum
#endif
