#ifndef OSTRUM_PERF_LOG_FLUSH_IDLE_SELECT_H
#define OSTRUM_PERF_LOG_FLUSH_IDLE_SELECT_H
#include <sys/select.h>

extern "C" {
// select() for the host's idle wait, with the timed flush at most once a second; never fails with EINTR.
int __ostrum_select(int n, fd_set* read_set, fd_set* write_set, fd_set* except_set, struct timeval* timeout);
}
#endif
