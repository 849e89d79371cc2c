// What others need for a pair, in the same program: an event recorder that writes both ends to a ring
// buffer, and a metrics library's histogram and counter.
#include <chrono>
#include <string>
#include <thread>

#include <dlfcn.h>

#include "calls.h"
#include "scenarios.h"

#ifdef OSTRUM_BENCH_PROMETHEUS
#include <prometheus/counter.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>
#endif

namespace ostrum_bench {
namespace {

// ---- the event recorder ----

bool run_quietly(const std::string& command)
{
    // NOLINTNEXTLINE(cert-env33-c): fixed commands of this file
    return std::system(("exec >/dev/null 2>&1; timeout 20 " + command).c_str()) == 0;
}

// A recording session of this process, in a session daemon of its own unless one is there. Its buffers are
// written over, so that the pair is always recorded and no disk is waited for.
class recording_session {
public:
    recording_session()
    {
        if (!run_quietly("lttng --version")) {
            throw skipped("lttng-tools are not installed");
        }
        if (run_quietly("lttng --no-sessiond list")) {
            return;
        }
        own_daemon_ = run_quietly("lttng-sessiond --daemonize --no-kernel --pidfile=$PWD/daemon.pid");
        if (!own_daemon_) {
            throw skipped("a session daemon of LTTng cannot run here");
        }
    }
    ~recording_session()
    {
        run_quietly("lttng destroy " + name_);
        if (own_daemon_) {
            run_quietly("sh -c 'kill $(cat daemon.pid)'");
        }
    }
    recording_session(const recording_session&) = delete;
    recording_session& operator=(const recording_session&) = delete;
    void start() const
    {
        if (!run_quietly("lttng create --snapshot --output=$PWD/snapshots " + name_) ||
            !run_quietly("lttng enable-event --userspace --session " + name_ + " 'ostrum_bench:*'") ||
            !run_quietly("lttng start " + name_)) {
            throw skipped("LTTng does not record here");
        }
    }

private:
    std::string name_ = "ostrum_bench_" + std::to_string(own_pid);
    bool own_daemon_ = false;
};

using pair_function = void (*)(uint32_t, const char*, const char*, int32_t, const char*);

// The module's functions; its load registers it with the session daemon.
pair_function load_traced_pair()
{
#ifdef OSTRUM_BENCH_TRACE_POINTS
    void* module = dlopen(OSTRUM_BENCH_TRACE_POINTS, RTLD_NOW);
    if (module == nullptr) {
        throw skipped(dlerror());
    }
    const auto is_on = reinterpret_cast<int (*)()>(dlsym(module, "tracing_is_on"));
    constexpr int most_looks = 100;
    for (int look = 0; is_on() == 0; ++look) {
        if (look == most_looks) {
            throw skipped("LTTng does not record here");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return reinterpret_cast<pair_function>(dlsym(module, "trace_pair"));
#else
    throw skipped("built without LTTng-UST (liblttng-ust-dev)");
#endif
}

} // namespace

void register_event_recorder()
{
    static const recording_session session;
    session.start();
    static const pair_function traced_pair = load_traced_pair();
    register_timed("recorded pair", [](benchmark::State& state) {
        for (auto _ : state) {
            traced_pair(measured_opcode, "measured", host_file, 10, object_type);
        }
    });
}

// ---- the metrics library ----

#ifdef OSTRUM_BENCH_PROMETHEUS
namespace {

struct operation_metrics {
    prometheus::Registry registry;
    prometheus::Histogram& durations = prometheus::BuildHistogram().Name("seconds").Register(registry).Add(
        {{"operation", "measured"}}, prometheus::Histogram::BucketBoundaries{1e-8, 2e-8, 1, 10});
    prometheus::Counter& calls =
        prometheus::BuildCounter().Name("calls").Register(registry).Add({{"operation", "measured"}});
};

} // namespace

// The library has no clock: the caller reads it at both ends.
void register_metrics_library()
{
    static operation_metrics metrics;
    for (const int threads : {1, 2}) {
        const std::string name = "observed pair, threads: " + std::to_string(threads);
        auto* pair = register_timed(name, [](benchmark::State& state) {
            for (auto _ : state) {
                const double start_ns = clock_ns(CLOCK_REALTIME);
                metrics.durations.Observe((clock_ns(CLOCK_REALTIME) - start_ns) / 1e9);
                metrics.calls.Increment();
            }
        });
        run_in_threads(pair, threads);
    }
}
#else
void register_metrics_library()
{
    throw skipped("built without prometheus-cpp (prometheus-cpp-dev)");
}
#endif

} // namespace ostrum_bench
