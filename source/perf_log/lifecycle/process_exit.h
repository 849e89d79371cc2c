#ifndef OSTRUM_PERF_LOG_LIFECYCLE_PROCESS_EXIT_H
#define OSTRUM_PERF_LOG_LIFECYCLE_PROCESS_EXIT_H

extern "C" {
// Exit handler, registered by start-up: ends the tracing, releases every context and lets the flusher write
// what is queued.
void release_at_process_exit(void);
}
#endif
