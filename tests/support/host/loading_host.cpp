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

std::atomic<uint32_t> opcode{3};
std::atomic<bool> stopped{false};
std::atomic<long> issued{0};

struct hooks {
    decltype(&ostrum_log_start_op_key) start;
    decltype(&ostrum_log_end_op_key) end;
    decltype(&ostrum_select) select;
};

hooks look_up_hooks(void* library)
{
    const auto look_up = [library]<typename Function>(const char* name, Function* function) {
        *function = reinterpret_cast<Function>(dlsym(library, name));
    };
    hooks h{};
    look_up("ostrum_log_start_op_key", &h.start);
    look_up("ostrum_log_end_op_key", &h.end);
    look_up("ostrum_select", &h.select);
    return h;
}

// Key -1: the thread's own context.
void operate(const hooks& h, int key = -1)
{
    const uint32_t code = opcode;
    qel_errbuf_t ebuf{};
    h.start(getpid(), key, code, "op", 0, nullptr, "loading_host.cpp", 1, "", 0, 0, nullptr);
    h.end(getpid(), key, code, "op", 0, nullptr, nullptr, 0, "loading_host.cpp", 1, "", 0, 0, &ebuf);
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
    const hooks h = look_up_hooks(library);
    const auto work = [&h](int key) {
        while (!stopped) {
            key == 0 ? idle(h) : operate(h, key);
        }
    };
    std::thread threads[] = {std::thread(work, 0), std::thread(work, 1), std::thread(work, 2)};
    operate(h);
    std::this_thread::sleep_for(some_time);
    dlclose(library);
    opcode = 4;
    operate(h);
    std::this_thread::sleep_for(some_time);
    operate(look_up_hooks(dlopen(OSTRUM_LIBRARY, RTLD_NOW | RTLD_LOCAL)));
    stopped = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    printf("issued=%ld\n", issued.load());
    exit(5);
}
