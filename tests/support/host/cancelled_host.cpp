// A host whose service that names the work at hand is a cancellation point: a thread is cancelled in it,
// inside a hook. Another thread, which is there all the time, then works with the same keyed context, and
// says so by "other thread done".
#include <atomic>
#include <cstdio>
#include <thread>

#include <pthread.h>
#include <unistd.h>

#include "ostrum.h"
#include "qel_platform.h"

namespace {

thread_local bool ends_in_service = false;

void operate(int key)
{
    qel_errbuf_t ebuf{};
    ostrum_log_start_op_key(getpid(), key, 5, "op", 0, nullptr, "cancelled_host.cpp", 1, "", 0, 0, nullptr);
    ostrum_log_end_op_key(getpid(), key, 5, "op", 0, nullptr, nullptr, 0, "cancelled_host.cpp", 1, "", 0, 0,
                          &ebuf);
}

void operate_without_key()
{
    qel_errbuf_t ebuf{};
    ostrum_log_start_op(5, "op", 0, nullptr, "cancelled_host.cpp", 1, "", 0, 0, nullptr);
    ostrum_log_end_op(5, "op", 0, nullptr, nullptr, 0, "cancelled_host.cpp", 1, "", 0, 0, &ebuf);
}

void end_in_hook(void (*work)())
{
    pthread_t thread{};
    const auto body = [](void* argument) -> void* {
        void (*const operations)() = reinterpret_cast<void (*)()>(argument);
        operations();
        ends_in_service = true;
        operations();
        return nullptr;
    };
    pthread_create(&thread, nullptr, body, reinterpret_cast<void*>(work));
    void* result = nullptr;
    pthread_join(thread, &result);
    std::printf("%s\n", result == PTHREAD_CANCELED ? "cancelled" : "not cancelled");
}

} // namespace

// In place of the platform's.
extern "C" const char* qellog_get_correlation(void)
{
    if (ends_in_service) {
        pthread_cancel(pthread_self());
        pthread_testcancel();
    }
    return "1:host:program:1";
}

int main()
{
    ostrum_init();
    std::atomic<bool> cancelled{false};
    std::thread other([&cancelled] {
        while (!cancelled) {
            usleep(1000);
        }
        operate(1);
        std::puts("other thread done");
    });
    end_in_hook([] { operate(1); });
    cancelled = true;
    other.join();
    end_in_hook(operate_without_key);
    return 0;
}
