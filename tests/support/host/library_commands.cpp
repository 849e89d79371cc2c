// What a host calls of the library.
#include <cstdio>
#include <map>

#include <unistd.h>

#include "ostrum.h"
#include "ostrum_data.h"
#include "qel_platform.h"
#include "support/host/call_checks.h"
#include "support/host/script.h"

namespace {

// ---- Hooks ----

struct open_operation {
    uint32_t opcode;
    std::string name;
};
using operation_stack = std::vector<open_operation>;

thread_local std::map<int, operation_stack> stacks; // by key

constexpr const char* file = "script_host.cpp";
constexpr int line = 1;

// Calls the plain form of a hook or, with the key, the other.
template <typename Plain, typename Keyed, typename... Args>
void call_hook(int key, Plain plain, Keyed keyed, Args... args)
{
    const watched_call watch;
    watch.check(key == no_key ? plain(args...) : keyed(getpid(), key, args...));
}

void start_operation(int key, const open_operation& op, void* list)
{
    call_hook(key, ostrum_log_start_op, ostrum_log_start_op_key, op.opcode, op.name.c_str(), 0U, list, file,
              line, "", int64_t{0}, int64_t{0}, nullptr);
}

void end_operation(int key, const open_operation& op, void* list, int errnum)
{
    qel_errbuf_t ebuf{};
    ebuf.errnum = static_cast<uint32_t>(errnum);
    ebuf.err_class = errnum != 0 ? QEL_CLASS_APPL : QEL_CLASS_NONE;
    ebuf.location = errnum != 0 ? QEL_LOC_APPL : QEL_LOC_NONE;
    call_hook(key, ostrum_log_end_op, ostrum_log_end_op_key, op.opcode, op.name.c_str(), 0U, list, list, 0U,
              file, line, "", int64_t{0}, int64_t{0}, static_cast<void*>(&ebuf));
}

void start(const command& c)
{
    const auto opcode = static_cast<uint32_t>(c.number(0));
    start_operation(c.key, stacks[c.key].emplace_back(open_operation{opcode, c.text(1, "op_" + c.text(0))}),
                    nullptr);
}

void end(const command& c)
{
    operation_stack& stack = stacks[c.key];
    const counted_pair pair(!stack.empty());
    open_operation op = stack.empty() ? open_operation{0, "op_" + c.text(0)} : stack.back();
    op.opcode = static_cast<uint32_t>(c.number(0, static_cast<int>(op.opcode)));
    if (!stack.empty()) {
        stack.pop_back();
    }
    end_operation(c.key, op, nullptr, c.number(1));
}

void whole_operation(const command& c)
{
    start({nullptr, c.key, {c.text(0)}, {}});
    end(c);
}

void operation_with_lists(const command& c)
{
    qel_errbuf_t ebuf{};
    qel_flist_t* const list = qel_flist_create(&ebuf);
    qeli_flist_set(list, QEL_FLD(QEL_TYPE_STR, 17), 0, "text", &ebuf);
    const open_operation op{static_cast<uint32_t>(c.number(0)), "listed"};
    start_operation(c.key, op, list);
    const counted_pair pair;
    end_operation(c.key, op, list, 0);
    qel_flist_destroy(list, &ebuf);
}

void start_function(const command& c)
{
    call_hook(c.key, ostrum_log_start_fn, ostrum_log_start_fn_key, 0U, c.text(0).c_str(), 0U, "script_host",
              file, line, "", int64_t{0});
}

void end_function(const command& c)
{
    const int error = c.number(1);
    const counted_pair pair;
    call_hook(c.key, ostrum_log_end_fn, ostrum_log_end_fn_key, 0U, c.text(0).c_str(), 0U, error != 0 ? 1 : 0,
              "script_host", file, line, "", int64_t{0}, error, 0, 0);
}

// ---- Other calls ----

// In ostrum_select without descriptors.
void wait_idle(const command& c)
{
    const suseconds_t milliseconds = c.number(0);
    timeval timeout{milliseconds / 1000, milliseconds % 1000 * 1000};
    report_bad(ostrum_select(0, nullptr, nullptr, nullptr, &timeout) != 0, "select");
}

// The calls of monitoring programs, on the own data file: the lists of all kinds, each once plain and once
// merged.
void query(const command&)
{
    rt_info* const data = ostrum_data_file_get();
    int32_t count = 0;
    ostrum_counters_destroy(ostrum_counters_get(data, 0, &count));
    ostrum_errors_destroy(ostrum_errors_get(data, 0, &count));
    ostrum_counters_destroy(ostrum_counters_get_aggr(data, 0, &count, OSTRUM_BY_OPCODE));
    ostrum_errors_destroy(ostrum_errors_get_aggr(data, 0, &count, OSTRUM_ERROR_BY_ERRNUM));
    ostrum_variables_destroy(ostrum_variables_get(data, nullptr, &count));
    ostrum_proc_metrics_set_cm_data();
    ostrum_proc_metrics_destroy(ostrum_proc_metrics_get(data));
}

volatile sig_atomic_t reentering = 0;

} // namespace

const command_table& library_commands = *new command_table{
    {"init", [](const command&) { dprintf(report_fd, "init=%d\n", ostrum_init()); }},
    {"init_quiet", [](const command&) { dprintf(report_fd, "init=%d\n", ostrum_init_quiet()); }},
    {"start", start},                   // OPCODE [NAME]
    {"end", end},                       // [OPCODE [ERRNUM]], without an opcode that of the last start
    {"op", whole_operation},            // OPCODE [ERRNUM]
    {"flist_op", operation_with_lists}, // OPCODE: with an input and an output list
    {"start_fn", start_function},       // NAME
    {"end_fn", end_function},           // NAME [ERROR]
    {"release_key", [](const command& c) { ostrum_release_liptr_by_key(getpid(), c.number(0)); }},
    {"context_key",
     [](const command& c) {
         void* const context = ostrum_get_liptr_by_key(getpid(), c.number(0));
         dprintf(STDOUT_FILENO, "context=%s\n", context != nullptr ? "yes" : "no");
     }},
    {"select", wait_idle}, // MS
    {"query", query},
    {"variable", // NAME VALUE
     [](const command& c) {
         ostrum_variable_set(ostrum_data_file_get(), c.text(0).c_str(), c.text(1).c_str());
     }},
    // The platform's clock service calls hooks and ostrum_init, once.
    {"reenter", [](const command&) { reentering = 1; }},
};

// In place of the platform's own: the service that start-up always calls.
extern "C" __attribute__((visibility("default"))) time_t qel_virtual_time(time_t* out)
{
    if (reentering != 0) {
        reentering = 0;
        run(parse("init; init_quiet; op 3; op_key 1 3"));
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now); // which the fault shim can set
    if (out != nullptr) {
        *out = now.tv_sec;
    }
    return now.tv_sec;
}
