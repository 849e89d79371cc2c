// A host of several threads forks while the others are at work: what a child does, it does alone.
#include "robustness/host_oracle.h"

namespace {

// Threads do operations 3 and 4. Operation 7 is a child's and must be in the files, 9 a child's that ends
// without exit handlers.
struct child {
    const char* script;
    long calls; // of operation 7
};
constexpr child children[] = {
    {"_exit 0", 0},
    {"op 9; _exit 0", 0},
    {"exit 0", 0},
    {"op 7; exit 0", 1},
    {"op_key 30 7; thread {op 7}; start 7; end; exit 0", 3},
    {"exec oracle, op 7, op_key 30 7, exit 0", 2},
    {"fork {op 7; exit 0}; exit 0", 1},
    {"op 7; fork {start 7; fork {op 9; _exit 0}; end; fork {op 9; _exit 0}}; op 7; exit 0", 3},
};
constexpr int forking_threads = 3;

// Threads that had no key at the same time would share one context, and with it one call stack: the main
// thread only has none.
std::string on_key(int key, const std::string& command)
{
    const size_t blank = command.find(' ');
    return key == 0 ? command
                    : command.substr(0, blank) + "_key " + std::to_string(key) +
                          (blank == std::string::npos ? "" : command.substr(blank));
}

std::string load(int thread)
{
    return "repeat 15 {" + on_key(thread, "op 3") + "; " + on_key(thread + 10, "op 4") + "}; ";
}

// Forks each child once, every second one inside an operation; which one is first depends on the thread.
std::string forks_of(int thread, int times)
{
    std::string all = "repeat " + std::to_string(times) + " {";
    for (size_t n = 0; n < std::size(children); ++n) {
        const size_t which = (n + static_cast<size_t>(thread) * 3 + seed()) % std::size(children);
        const std::string fork = "fork {" + std::string(children[which].script) + "}; ";
        all += load(thread) +
               (n % 2 == 0 ? fork : on_key(thread, "start 3") + "; " + fork + on_key(thread, "end") + "; ");
    }
    return all + "}";
}

std::string host_that_forks(int times)
{
    std::string script = "init; spawn {repeat " + std::to_string(times) + " {repeat 40 {" + load(9) + "}}}; ";
    for (int thread = 1; thread < forking_threads; ++thread) {
        script += "spawn {" + forks_of(thread, times) + "}; ";
    }
    return script + forks_of(0, times) + "; await; exit 5"; // the main thread forks too
}

std::vector<writing> ways_and_lock_methods()
{
    std::vector<writing> all = ways();
    for (const size_t shared : {size_t{1}, size_t{3}}) {
        // They do not keep the threads of a process apart: two could rename a full file at once.
        all.push_back(
            {"record locks", with({{"ostrum_log_max_single_file_size", "0"}}, // of two the first counts
                                  with(all[shared].settings, {{"ostrum_lock_method", "1"}}))});
    }
    return all;
}

// A child of several threads may find a sanitizer's own locks held, or start no thread.
using ForkedHosts = unsanitized_test;

} // namespace

TEST_F(ForkedHosts, ChildrenOfAHostUnderLoad)
{
    long calls_of_children = 0;
    for (const child& c : children) {
        calls_of_children += c.calls;
    }
    const int times = long_form() ? 15 : 1;
    const int forks = forking_threads * times * static_cast<int>(std::size(children));
    const std::map<int, long> expected{{3, 15 * (40 * times + forks) + forks / 2},
                                       {4, 15 * (40 * times + forks)},
                                       {7, calls_of_children * forking_threads * times}};
    case_count runs;
    for (const writing& way : ways_and_lock_methods()) {
        SCOPED_TRACE(way.name);
        const observed_run run = observe(way.settings, host_that_forks(times));
        expect_unharmed(run, {.exit_status = 5});
        EXPECT_EQ(run.incidents(), "");
        EXPECT_EQ(run.calls, expected) << "lost, written twice, or by a child that had nothing to write";
        runs.add(forks);
    }
}
