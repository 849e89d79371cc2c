#ifndef OSTRUM_TESTS_SUPPORT_HOST_CALL_CHECKS_H
#define OSTRUM_TESTS_SUPPORT_HOST_CALL_CHECKS_H
// What must hold around every call of a hook. Another errno, signal mask or cancellation state than before, a
// timestamp that is not of the time of the call, or a call that takes longer than any lock may be waited for
// prints a line that begins with "BAD".
#include <atomic>
#include <csignal>
#include <cstdint>

extern int report_fd;                   // "oracle" makes it a copy, which outlives a closed standard output
extern std::atomic<long> issued;        // starts with their ends, of this process
extern std::atomic<long> finished;      // those of them that have returned
extern std::atomic<long> interrupted;   // times
extern std::atomic<int64_t> slowest_tv; // hook

void report_bad(bool bad, const char* what);

class watched_call {
public:
    watched_call();
    void check(int64_t timestamp) const;

private:
    int64_t begun_tv_;
    int64_t set_by_before_tv_;
    sigset_t mask_before_{};
};

// Around the end hook of what was started.
class counted_pair {
public:
    explicit counted_pair(bool counts = true) : count_(counts ? 1 : 0) { issued += count_; }
    ~counted_pair() { finished += count_; }
    counted_pair(const counted_pair&) = delete;
    counted_pair& operator=(const counted_pair&) = delete;

private:
    const int count_;
};
#endif
