#include "data_manager.h"

#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <deque>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

#include <sys/eventfd.h>
#include <unistd.h>

#include "idle_wait.h"
#include "operations.h"
#include "process_figures.h"
#include "process_signals.h"
#include "traced.h"

namespace catalog {
namespace {

struct worker_connection {
    unique_fd socket;
    bool busy = false; // a pool thread has it; the main thread does not look at the socket
    bool closed = false;
};

// Connections with a request to read, from the main thread to the pool, and back when it is answered.
class exchange {
public:
    exchange() : wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

    [[nodiscard]] const unique_fd& wake() const { return wake_; } // readable when `answered` has something

    void hand_over(worker_connection* connection)
    {
        {
            const std::lock_guard guard(mutex_);
            waiting_.push_back(connection);
        }
        filled_.notify_one();
    }
    // Null when the pool is to end.
    worker_connection* next()
    {
        std::unique_lock guard(mutex_);
        filled_.wait(guard, [&] { return closed_ || !waiting_.empty(); });
        if (waiting_.empty())
            return nullptr;
        worker_connection* connection = waiting_.front();
        waiting_.pop_front();
        return connection;
    }
    void give_back(worker_connection* connection)
    {
        {
            const std::lock_guard guard(mutex_);
            answered_.push_back(connection);
        }
        eventfd_write(wake_.get(), 1);
    }
    std::vector<worker_connection*> take_answered()
    {
        eventfd_t ignored = 0;
        eventfd_read(wake_.get(), &ignored);
        const std::lock_guard guard(mutex_);
        return std::exchange(answered_, {});
    }
    void close()
    {
        {
            const std::lock_guard guard(mutex_);
            closed_ = true;
        }
        filled_.notify_all();
    }

private:
    unique_fd wake_;
    std::mutex mutex_; // guards what follows; nothing is locked inside it
    std::condition_variable filled_;
    std::deque<worker_connection*> waiting_;
    std::vector<worker_connection*> answered_;
    bool closed_ = false;
};

// One request from the socket, answered. False when the connection is to be closed.
bool serve(catalog_store& store, service_figures& figures, const worker_connection& connection)
try {
    const list_ptr request = receive_message(connection.socket);
    if (!request)
        return false;
    const list_ptr reply = answer(store, figures, request.get());
    send_message(connection.socket, reply.get());
    return true;
} catch (const std::exception& error) {
    ++figures.connections_failed;
    std::fprintf(stderr, "data manager: connection dropped: %s\n", error.what());
    return false;
}

void run_pool_thread(exchange& requests, service_figures& figures, const std::string& database, int32_t key)
try {
    catalog_store store(database);
    const trace_key own_key(key);
    while (worker_connection* connection = requests.next()) {
        connection->closed = !serve(store, figures, *connection);
        requests.give_back(connection);
    }
} catch (const std::exception& error) {
    std::fprintf(stderr, "data manager: thread %d ended: %s\n", key, error.what());
    kill(getpid(), SIGTERM);
}

class thread_pool {
public:
    thread_pool(exchange& requests, service_figures& figures, const std::string& database, int threads)
        : requests_(requests)
    {
        for (int32_t key = 1; key <= threads; ++key)
            threads_.emplace_back(
                [&requests, &figures, database, key] { run_pool_thread(requests, figures, database, key); });
    }
    ~thread_pool()
    {
        requests_.close();
        for (std::thread& thread : threads_)
            thread.join();
    }
    thread_pool(const thread_pool&) = delete;
    thread_pool& operator=(const thread_pool&) = delete;

private:
    exchange& requests_;
    std::vector<std::thread> threads_;
};

using connection_list = std::list<worker_connection>; // a list: the pool holds addresses

void wait_for_any(idle_wait& wait, const connection_list& connections, publishing_clock& clock)
{
    for (const worker_connection& connection : connections) {
        if (!connection.busy)
            wait.add(connection.socket);
    }
    wait.wait(clock.left());
}

void hand_over_readable(const idle_wait& wait, exchange& requests, connection_list& connections)
{
    for (worker_connection& connection : connections) {
        if (!connection.busy && wait.ready(connection.socket)) {
            connection.busy = true;
            requests.hand_over(&connection);
        }
    }
}

void take_back_answered(exchange& requests, connection_list& connections)
{
    for (worker_connection* connection : requests.take_answered())
        connection->busy = false;
    connections.remove_if(
        [](const worker_connection& connection) { return !connection.busy && connection.closed; });
}

void accept_one(const unique_fd& listener, service_figures& figures, connection_list& connections)
{
    if (unique_fd socket = accept_connection(listener); socket.get() >= 0) {
        connections.emplace_back().socket = std::move(socket);
        ++figures.connections_total;
    }
}

void serve_until_stopped(const unique_fd& listener, exchange& requests, service_figures& figures,
                         connection_list& connections)
{
    const unique_fd signals = open_signal_fd();
    publishing_clock clock(data_manager_part);
    for (;;) {
        idle_wait wait;
        wait.add(listener);
        wait.add(signals);
        wait.add(requests.wake());
        wait_for_any(wait, connections, clock);
        if (wait.ready(signals) && take_signals(signals).stop)
            return;
        hand_over_readable(wait, requests, connections);
        take_back_answered(requests, connections);
        if (wait.ready(listener))
            accept_one(listener, figures, connections);
        figures.connections_open = connections.size();
        if (clock.due())
            publish_data_manager(figures);
    }
}

} // namespace

int run_data_manager(unique_fd listener, const std::string& database, int threads)
try {
    exchange requests;
    service_figures figures;
    figures.transactions_max = static_cast<uint64_t>(threads);
    connection_list connections;
    const thread_pool pool(requests, figures, database, threads);
    serve_until_stopped(listener, requests, figures, connections);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "data manager: %s\n", error.what());
    return 1;
}

} // namespace catalog
