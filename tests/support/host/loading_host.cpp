// A host that loads the library while it runs, and closes it while its threads are at work with it. They go
// on; so does the host when it loads it again. usage: loading_host "... MICROSECONDS"
//
// Operations of opcode 3 before the library is closed, 4 from then on. Prints "issued=HOOK-PAIRS".
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include <dlfcn.h>

#include "ostrum.h"
#include "qel_platform.h"

namespace {

struct hooks {
    decltype(&ostrum_log_start_op) start;
    decltype(&ostrum_log_end_op) end;
    decltype(&ostrum_log_start_op_key) start_key;
    decltype(&ostrum_log_end_op_key) end_key;
    decltype(&ostrum_select) select;
};

std::atomic<uint32_t> opcode{3};
std::atomic<bool> stopped{false};
std::atomic<long> issued{0};

template <typename Function>
void look_up(void* library, const char* name, Function& function)
{
    function = reinterpret_cast<Function>(dlsym(library, name));
}

hooks look_up_hooks(void* library)
{
    hooks h{};
    look_up(library, "ostrum_log_start_op", h.start);
    look_up(library, "ostrum_log_end_op", h.end);
    look_up(library, "ostrum_log_start_op_key", h.start_key);
    look_up(library, "ostrum_log_end_op_key", h.end_key);
    look_up(library, "ostrum_select", h.select);
    return h;
}

void operate(const hooks& h, int key)
{
    const uint32_t code = opcode;
    qel_errbuf_t ebuf{};
    h.start_key(getpid(), key, code, "op", 0, nullptr, "loading_host.cpp", 1, "", 0, 0, nullptr);
    h.end_key(getpid(), key, code, "op", 0, nullptr, nullptr, 0, "loading_host.cpp", 1, "", 0, 0, &ebuf);
    ++issued;
}

void operate_without_key(const hooks& h)
{
    const uint32_t code = opcode;
    qel_errbuf_t ebuf{};
    h.start(code, "op", 0, nullptr, "loading_host.cpp", 1, "", 0, 0, nullptr);
    h.end(code, "op", 0, nullptr, nullptr, 0, "loading_host.cpp", 1, "", 0, 0, &ebuf);
    ++issued;
}

void idle(const hooks& h)
{
    timeval timeout{0, 1000};
    h.select(0, nullptr, nullptr, nullptr, &timeout);
}

} // namespace

int main(int argc, char** argv)
{
    qel_platform_init();
    const char* const last_word = argc == 2 ? strrchr(argv[1], ' ') : nullptr;
    const std::chrono::microseconds some_time(last_word != nullptr ? strtol(last_word, nullptr, 10) : 0);
    void* const library = dlopen(OSTRUM_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        printf("BAD dlopen %s\n", dlerror());
        return 1;
    }
    const hooks h = look_up_hooks(library);
    std::thread threads[3];
    for (int n = 0; n < 3; ++n) {
        threads[n] = std::thread([&h, n] {
            while (!stopped) {
                n == 0 ? idle(h) : operate(h, n);
            }
        });
    }
    operate_without_key(h);
    std::this_thread::sleep_for(some_time);
    dlclose(library);
    opcode = 4;
    operate_without_key(h);
    std::this_thread::sleep_for(some_time);
    operate_without_key(look_up_hooks(dlopen(OSTRUM_LIBRARY, RTLD_NOW | RTLD_LOCAL)));
    stopped = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    printf("issued=%ld\n", issued.load());
    exit(5);
}
