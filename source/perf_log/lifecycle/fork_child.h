#ifndef OSTRUM_PERF_LOG_LIFECYCLE_FORK_CHILD_H
#define OSTRUM_PERF_LOG_LIFECYCLE_FORK_CHILD_H

extern "C" {
// Fork handler in the child, registered by start-up: a new identity, none of the parent's contexts, and a
// flusher thread of its own.
void clean_child_atfork(void);
}
#endif
