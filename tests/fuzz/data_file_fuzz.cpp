// A data file in which anything may stand, changed between the calls that use it. The input is a list of
// commands: some damage the file, the others are those of hosts and of monitoring tools.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include <pthread.h>

#include "config/settings.h"
#include "data_file/contents.h"
#include "data_file/counters.h"
#include "data_file/errors.h"
#include "data_file/locks.h"
#include "data_file/snapshot.h"
#include "data_file/stuck_locks.h"
#include "data_file/table_access.h"
#include "data_file/variables.h"
#include "fuzz/fuzz_target.h"
#include "perf_log/context/log_context.h"
#include "perf_log/lifecycle/context_release.h"
#include "perf_log/operation/write_log.h"
#include "process_metrics/metrics_area.h"

using namespace ostrum;

namespace {

// ---- The file ----

constexpr size_t page_bytes = 4096;
constexpr size_t image_bytes = sizeof(data_file_image);
constexpr size_t mapped_bytes = (image_bytes + page_bytes - 1) / page_bytes * page_bytes;

// Private to this process over an ordinary file in memory, whose bytes come back at no cost; in front of it
// and behind it lies nothing.
class damaged_image {
public:
    damaged_image()
    {
        void* const room =
            mmap(nullptr, mapped_bytes + 2 * page_bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        fuzz::must(room != MAP_FAILED, "there is room");
        rt_info* const file = make_ordinary_file();
        fuzz::must(ftruncate(fd_, mapped_bytes) == 0 &&
                       pwrite(fd_, file->image, image_bytes, 0) == static_cast<ssize_t>(image_bytes),
                   "the ordinary file can be kept");
        __perf_data_file_close(file, 1);
        void* const at = mmap(static_cast<char*>(room) + page_bytes, mapped_bytes, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_FIXED, fd_, 0);
        fuzz::must(at != MAP_FAILED, "it can be mapped");
        image_ = static_cast<data_file_image*>(at);
    }
    data_file_image& fresh()
    {
        madvise(image_, mapped_bytes, MADV_DONTNEED);
        return *image_;
    }

private:
    static rt_info* make_ordinary_file()
    {
        const std::string path = "/dev/shm/fuzz_data_file." + std::to_string(getpid());
        rt_info* const file = __perf_data_file_open(path.c_str(), DATA_FILE_INIT_LOCKS);
        fuzz::must(file != nullptr, "an ordinary file can be made");
        for (int32_t n = 0; n < 6; ++n) {
            const std::string name = "name_" + std::to_string(n);
            rt_counter_add(file, n, name.c_str(), 1, n, "program", "file.c", "/type", 1, 2, 1, 3, 4, 5, 6);
            rt_error_add(file, 1, n, name.c_str(), "program", 1, 2, static_cast<uint32_t>(n), 1);
            rt_variable_add(file, name.c_str(), "12", 1);
        }
        rt_variable_add(file, "time_on", "1", 1);
        return file;
    }

    int fd_ = memfd_create("ordinary", MFD_CLOEXEC);
    data_file_image* image_ = nullptr;
};

// ---- The input ----

class command_reader {
public:
    command_reader(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}
    [[nodiscard]] bool at_end() const { return at_ == end_; }
    // As many bytes as the type has; zeros behind the end.
    template <typename T>
    T next()
    {
        T value{};
        const size_t bytes = std::min(sizeof(T), static_cast<size_t>(end_ - at_));
        memcpy(&value, at_, bytes);
        at_ += bytes;
        return value;
    }
    [[nodiscard]] std::string next_text()
    {
        const size_t wanted = next<uint8_t>() * size_t{5}; // longer than any field
        const size_t bytes = std::min(wanted, static_cast<size_t>(end_ - at_));
        std::string text(reinterpret_cast<const char*>(at_), bytes);
        at_ += bytes;
        return text.c_str();
    }

private:
    const uint8_t* at_;
    const uint8_t* end_;
};

struct session {
    rt_info file;
    log_context* context;
    counter_entry* counter; // what a host remembers from one operation to the next
    variable_entry* variable;
};

// ---- Damage ----

lock_slot& chosen_slot(data_file_image& image, uint8_t choice)
{
    constexpr size_t header_locks = std::size(data_file_image{}.locks);
    if (choice < header_locks) {
        return image.locks[choice];
    }
    return (choice & 1U) != 0 ? image.counters[choice / 8].lock : image.variables[choice / 8].lock;
}

void damage_bytes(session& s, command_reader& in)
{
    const size_t at = in.next<uint32_t>() % (image_bytes - sizeof(uint64_t));
    const auto bytes = in.next<uint64_t>();
    memcpy(reinterpret_cast<char*>(s.file.image) + at, &bytes, sizeof(bytes));
}

void damage_count(session& s, command_reader& in)
{
    data_file_image& image = *s.file.image;
    uint64_t* const counts[] = {&image.counter_count, &image.variable_count, &image.error_count,
                                reinterpret_cast<uint64_t*>(&image.variables_modified_tv)};
    const uint8_t choice = in.next<uint8_t>();
    *counts[choice % std::size(counts)] = in.next<uint64_t>();
}

void damage_text(session& s, command_reader& in)
{
    data_file_image& image = *s.file.image;
    const uint8_t choice = in.next<uint8_t>();
    const size_t index = in.next<uint8_t>() % 16;
    const char fill = in.next<char>();
    char(*const texts[])[text_bytes] = {&image.counters[index].opname, &image.counters[index].program,
                                        &image.counters[index].fname,  &image.counters[index].obj_type,
                                        &image.errors[index].opname,   &image.errors[index].program,
                                        &image.variables[index].name};
    if (choice % 8 < std::size(texts)) {
        memset(texts[choice % 8], fill, text_bytes);
    } else {
        memset(image.variables[index].value, fill, variable_value_bytes);
    }
}

void damage_value(session& s, command_reader& in)
{
    variable_entry& entry = s.file.image->variables[in.next<uint8_t>() % 8];
    strncpy(entry.value, in.next_text().c_str(), variable_value_bytes);
}

void damage_lock(session& s, command_reader& in)
{
    lock_slot& slot = chosen_slot(*s.file.image, in.next<uint8_t>());
    const size_t at = in.next<uint8_t>() % (sizeof(lock_slot) - sizeof(uint32_t));
    const auto word = in.next<uint32_t>();
    memcpy(reinterpret_cast<char*>(&slot) + at, &word, sizeof(word));
}

void damage_many_locks(session& s, command_reader& in)
{
    const int word = in.next<int>();
    const int kind = in.next<uint16_t>();
    for (size_t i = 0; i < max_counters; ++i) {
        s.file.image->counters[i].lock.mutex.__data.__lock = word;
        s.file.image->counters[i].lock.mutex.__data.__kind = kind;
    }
}

// ---- What hosts do ----

void add_counter(session& s, command_reader& in)
{
    const auto opcode = int32_t{in.next<int8_t>()};
    const std::string name = in.next_text();
    counter_entry* const entry = rt_counter_add(&s.file, opcode, name.c_str(), 1, opcode, "program", "file.c",
                                                "/type", 1, 1, 0, 1, 1, 1, 1);
    s.counter = entry != nullptr ? entry : s.counter;
}

void add_error(session& s, command_reader& in)
{
    const std::string name = in.next_text();
    rt_error_add(&s.file, 1, in.next<int8_t>(), name.c_str(), "program", 1, 2, in.next<uint8_t>(), 1);
}

void use_variable(session& s, command_reader& in)
{
    const std::string name = in.next_text();
    const std::string value = in.next_text();
    os::release(perf_data_file_var_get(&s.file, nullptr, name.c_str()));
    perf_data_file_var_set(&s.file, &s.variable, name.c_str(), value.c_str());
}

void use_known_variable(session& s, command_reader& in)
{
    rt_variable_get_double(s.variable);
    rt_variable_set_int(s.variable, in.next<int32_t>());
}

void run_operation(session& s, command_reader& in)
{
    fake_os::advance_clock(1'000'000'000);
    op_event event{};
    qel_errbuf_t ebuf{};
    ebuf.errnum = in.next<uint8_t>();
    event.opcode = in.next<uint8_t>() % 8;
    event.opname = "operation";
    for (const op_phase phase : {op_phase::start, op_phase::end}) {
        event.phase = phase;
        event.ebuf = phase == op_phase::end ? &ebuf : nullptr;
        write_log(s.context, &event);
    }
}

void start_again(session& s, command_reader& in)
{
    initialise_header_locks(s.file, true);
    if (in.next<uint8_t>() == 0) {
        reset_contents(s.file);
    }
}

// ---- What monitoring programs do ----

template <size_t N>
void must_end(const char (&text)[N])
{
    fuzz::must(strnlen(text, N) < N, "a copied text ends within its field");
}

// Returns the calls that a copied entry tells of.
uint64_t checked_calls(const counter_entry& entry)
{
    must_end(entry.opname);
    must_end(entry.program);
    must_end(entry.fname);
    must_end(entry.obj_type);
    return entry.calls;
}

uint64_t checked_calls(const error_entry& entry)
{
    must_end(entry.opname);
    must_end(entry.program);
    return entry.errcnt;
}

uint64_t checked_calls(const variable_entry& entry)
{
    must_end(entry.name);
    must_end(entry.value);
    return 0;
}

// Checks a list and gives it back. Returns the sum of its calls.
template <typename Entry>
uint64_t calls_in_list(Entry** list, int32_t count, uint64_t most)
{
    fuzz::must((list != nullptr) == (count > 0), "a list has entries");
    fuzz::must(count >= 0 && static_cast<uint64_t>(count) <= most, "a list is no longer than its table");
    uint64_t calls = 0;
    for (int32_t i = 0; i < count; ++i) {
        calls += checked_calls(*list[i]);
    }
    fuzz::must(list == nullptr || list[count] == nullptr, "a null stands behind the last entry");
    destroy_list(list);
    return calls;
}

// All entries, then merged by some fields.
template <auto list_all, auto list_merged, uint32_t all_fields, uint64_t most>
void list_and_merge(session& s, command_reader& in)
{
    const uint32_t kept = in.next<uint8_t>() & all_fields;
    int32_t count = 0;
    auto** const plain = list_all(&s.file, 0, &count);
    const uint64_t calls = calls_in_list(plain, count, most);
    auto** const merged = list_merged(&s.file, in.next<uint8_t>() & 1U, &count, kept);
    fuzz::must(calls_in_list(merged, count, most) == calls, "merging loses no calls");
}

void list_variables(session& s, command_reader& in)
{
    const std::string name = in.next_text();
    int32_t count = 0;
    variable_entry** const list = variable_list(&s.file, name.empty() ? nullptr : name.c_str(), &count);
    calls_in_list(list, count, max_variables);
    rt_variables_debug(&s.file, "all");
}

void reset_tables(session& s, command_reader& /*in*/)
{
    rt_counters_reset(&s.file);
    rt_errors_reset(&s.file);
}

void use_metrics(session& s, command_reader& /*in*/)
{
    process_metrics_area area{};
    rt_process_metrics_update(&s.file, &area);
    rt_process_metrics_copy(&area, &s.file);
    rt_process_metrics_reset(&s.file);
}

// ---- Commands ----

constexpr int64_t table_tv = table_lock_limit_tv;
constexpr int64_t nested_tv = nested_lock_limit_tv;
constexpr int64_t pause_tv = 10'000'000; // beyond a limit, for a last look

struct command {
    void (*run)(session& s, command_reader& in);
    int64_t longest_tv; // all its waits together
    bool makes_locks = false;
};
const command commands[] = {
    {damage_bytes, 0, true},
    {damage_count, 0},
    {damage_text, 0},
    {damage_value, 0},
    {damage_lock, 0, true},
    {damage_many_locks, 0},
    {add_counter, table_tv + nested_tv},
    {[](session& s, command_reader&) { rt_counter_update(s.counter, 1, 1, 1, 1, 1, 1); }, table_tv},
    {[](session& s, command_reader&) { rt_counter_reset(s.counter); }, table_tv},
    {add_error, table_tv},
    {use_variable, 3 * table_tv + 2 * nested_tv},
    {use_known_variable, 2 * table_tv},
    {run_operation, 8 * table_tv}, // the variables, the counter, the error
    {start_again, 5 * table_tv, true},
    {list_and_merge<counter_list, aggregated_counter_list, 0x7F, max_counters>, 2 * (table_tv + nested_tv)},
    {list_and_merge<error_list, aggregated_error_list, 0x3F, max_errors>, 2 * table_tv},
    {list_variables, 2 * (table_tv + nested_tv)},
    {reset_tables, 2 * table_tv + nested_tv},
    {use_metrics, 3 * table_tv},
};

using lock_words = std::array<int, std::size(data_file_image{}.locks)>;

lock_words header_words(const data_file_image& image)
{
    lock_words words{};
    for (size_t i = 0; i < words.size(); ++i) {
        words[i] = image.locks[i].mutex.__data.__lock;
    }
    return words;
}

void run_command(session& s, command_reader& in)
{
    const uint8_t choice = in.next<uint8_t>();
    const command& c = commands[choice % std::size(commands)];
    const lock_words before = header_words(*s.file.image);
    const int64_t begun_tv = fake_os::monotonic_tv();
    c.run(s, in);
    const int64_t waited_tv = fake_os::monotonic_tv() - begun_tv;
    fuzz::must(waited_tv <= c.longest_tv + pause_tv * 2, "nothing is waited for beyond its limit",
               std::to_string(choice) + " waits " + std::to_string(waited_tv));
    fuzz::must(c.makes_locks || header_words(*s.file.image) == before,
               "what is locked is unlocked, and nothing else", std::to_string(choice));
}

void set_up(damaged_image& image, session& s)
{
    fake_os::reset();
    fake_os::freeze_clock(1'768'480'200'000'000'000);
    fake_os::freeze_monotonic(); // waits take no time: how long anybody would have waited can be told
    fake_os::fail(fake_os::call::open_file, 1, ENOENT, true); // a damaged variable may switch traces on
    s = {{&image.fresh(), -1, nullptr}, nullptr, nullptr, nullptr};
    set_data_file_handle(&s.file);
    s.context = init_log_info(getpid(), own_thread_key);
}

void tear_down(session& s)
{
    release_loginfo(s.context);
    forget_stuck_within(s.file.image);
    set_data_file_handle(nullptr);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static damaged_image image;
    static session s;
    settings_for_startup().status_check_tv = 0;
    settings_for_startup().error_counter_level = 0x3f;
    settings_for_startup().flush_frequency_tv = 3'600'000'000'000;
    set_up(image, s);
    {
        constexpr int most_commands = 40;
        command_reader in(data, size);
        for (int done = 0; done < most_commands && !in.at_end(); ++done) {
            run_command(s, in);
        }
    }
    tear_down(s);
    fuzz::must(fake_os::blocks_in_use() == 0, "every block is released");
    return 0;
}
