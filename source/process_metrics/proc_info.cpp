#include "process_metrics/proc_info.h"

#include <cstdio>
#include <unistd.h>

#include "util/diagnostics.h"
#include "util/resources.h"
#include "util/text.h"

using namespace ostrum;

namespace {

constexpr int64_t longest_children_line = 32'767;

struct units {
    int64_t ticks_per_second = os::system_value(_SC_CLK_TCK);
    int64_t page_bytes = os::system_value(_SC_PAGESIZE);
};

void add_to_sum(proc_stat& sum, const proc_stat& sample)
{
    sum.utime += sample.utime;
    sum.stime += sample.stime;
    sum.processes += sample.processes;
    sum.threads += sample.threads;
    sum.vsize += sample.vsize;
    sum.rss += sample.rss;
}

// Reads a line of numbers piece by piece.
class number_line {
public:
    explicit number_line(const unique_fd& file) : file_(file) {}

    // False at the end of the line, or of what is read of it.
    bool next(int32_t& number)
    {
        number = 0;
        bool any = false;
        for (char c = take(); c != '\0'; c = take()) {
            if (is_digit(c)) {
                number = static_cast<int32_t>(static_cast<uint32_t>(number) * 10U +
                                              static_cast<uint32_t>(c - '0'));
                any = true;
            } else if (any) {
                return true;
            }
        }
        return any;
    }

private:
    // The next character; NUL at the end.
    char take()
    {
        if (at_ == filled_ && !fill()) {
            return '\0';
        }
        ended_ = block_[at_] == '\n' || --left_ < 0;
        return ended_ ? '\0' : block_[at_++];
    }
    bool fill()
    {
        const ssize_t count = ended_ ? 0 : os::read_file(file_.get(), block_, sizeof(block_));
        filled_ = count > 0 ? static_cast<size_t>(count) : 0;
        at_ = 0;
        ended_ = filled_ == 0;
        return !ended_;
    }

    const unique_fd& file_;
    char block_[1024];
    size_t at_ = 0;
    size_t filled_ = 0;
    int64_t left_ = longest_children_line;
    bool ended_ = false;
};

// The children's pids, into the records that their samples will replace: the list is read without a pause,
// because one that ends meanwhile shifts the rest of it.
void list_children(int32_t pid, proc_info& info)
{
    char path[64];
    snprintf(path, sizeof(path), "/proc/%d/task/%d/children", pid, pid);
    const unique_fd file{os::open_file(path, O_RDONLY, 0)};
    if (!file) {
        return;
    }
    number_line children(file);
    for (int32_t child = 0; info.count < max_sampled_processes && children.next(child);) {
        info.records[info.count++].pid = child;
    }
}

// A child that has ended meanwhile is a zero record, which counts and adds nothing.
void sample_children(proc_info& info, const units& system)
{
    for (int32_t i = 1; i < info.count; ++i) {
        proc_stat& record = info.records[i];
        record = get_proc_stat(record.pid, system.ticks_per_second, system.page_bytes);
        add_to_sum(info.sum, record);
    }
}

void print_all(const proc_info& info)
{
    print_ps(&info.sum, "   SUM");
    print_ps(&info.records[0], "PARENT");
    for (int32_t i = 1; i < info.count; ++i) {
        print_ps(&info.records[i], " CHILD");
    }
}

// The last one of that pid, or null.
const proc_stat* find_last(const proc_info& info, int32_t pid)
{
    for (int32_t i = info.count - 1; i >= 0; --i) {
        if (info.records[i].pid == pid) {
            return &info.records[i];
        }
    }
    return nullptr;
}

} // namespace

void get_proc_info(int32_t pid, proc_info* out)
{
    const units system;
    out->count = 0;
    out->sum = {};
    out->records[0] = get_proc_stat(pid, system.ticks_per_second, system.page_bytes);
    if (out->records[0].pid <= 0) {
        return;
    }
    out->count = 1;
    out->sum = out->records[0];
    list_children(pid, *out);
    sample_children(*out, system);
    print_all(*out);
}

proc_stat proc_info_diff(const proc_info* last, const proc_info* current, int32_t pid_filter)
{
    proc_stat difference{};
    for (int32_t i = 0; i < current->count; ++i) {
        const proc_stat& sample = current->records[i];
        if (pid_filter != 0 && sample.pid != pid_filter) {
            continue;
        }
        add_to_sum(difference, sample);
        if (const proc_stat* before = find_last(*last, sample.pid)) {
            difference.utime -= before->utime;
            difference.stime -= before->stime;
        }
    }
    return difference;
}
