#ifndef CATALOG_PROCESS_FIGURES_H
#define CATALOG_PROCESS_FIGURES_H
// The process metrics that the server's two lasting processes publish in the data file, and what the data
// manager counts for them.
#include <atomic>
#include <chrono>
#include <cstdint>

namespace catalog {

// Of the data manager; counted by its pool threads, read by its main thread.
struct service_figures {
    uint64_t transactions_max = 0;            // one a pool thread; set before they start
    std::atomic<uint64_t> operations_done{0}; // nested ones included
    std::atomic<uint64_t> operations_failed{0};
    std::atomic<uint64_t> transactions_open{0};
    std::atomic<uint64_t> transactions_waiting{0}; // for the writers' turn
    std::atomic<uint64_t> transactions_done{0};
    std::atomic<uint64_t> transactions_failed{0}; // undone
    std::atomic<uint64_t> connections_open{0};    // of workers
    std::atomic<uint64_t> connections_total{0};
    std::atomic<uint64_t> connections_failed{0}; // dropped in the middle of a message
};

// One more for as long as it lives.
class counted {
public:
    explicit counted(std::atomic<uint64_t>& number) : number_(number) { ++number_; }
    ~counted() { --number_; }
    counted(const counted&) = delete;
    counted& operator=(const counted&) = delete;

private:
    std::atomic<uint64_t>& number_;
};

// When an idle loop is to publish: once a second, however often it turns, and at that part of a second. The
// two processes share one data file and choose different parts, so that both can be seen in it.
class publishing_clock {
public:
    explicit publishing_clock(std::chrono::milliseconds part) : part_(part) {}
    [[nodiscard]] std::chrono::milliseconds left() const; // how long the loop may wait
    bool due();

private:
    using clock = std::chrono::steady_clock; // the same in all processes
    std::chrono::milliseconds part_;
    clock::time_point next_ = clock::now();
};
inline constexpr std::chrono::milliseconds data_manager_part{0};
inline constexpr std::chrono::milliseconds connection_manager_part{500};

// From one thread of the process only.
void publish_connection_manager();
void publish_data_manager(const service_figures& figures);

} // namespace catalog
#endif
