// The data file is no data file, holds nonsense, or is changed under the hosts that have it mapped.
#include <functional>
#include <random>

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include "robustness/host_oracle.h"
#include "support/run_command.h"

namespace {

using namespace ostrum;

constexpr const char* data_file = "ostrum_data.dat";
constexpr size_t right_size = sizeof(data_file_image);
const host_settings all_on{{"ostrum_status_check_frequency", "0"},
                           {"ostrum_error_counter_level", "63"},
                           {"ostrum_max_log_size", "4"}};

// Everything that reads or writes the data file.
const std::string use =
    "op 3; op 4 7; start 5; start 6; end; end; op_key 1 7 9; variable own x; variable own y;"
    "query; flist_op 8; thread {op 10 1}; select 1; ";

constexpr double patience_s = 40; // for what does not wait: less than a lock that is waited for each time

// What an ordinary host has left.
const std::string& ordinary_file()
{
    static const std::string bytes = [] {
        const observed_run run = observe(all_on, "init; " + use + "exit 5");
        return temp_dir::read(run.host.directory->file(data_file));
    }();
    return bytes;
}

// What lies where the data file should ($P), beside a directory with files of somebody else's ($S).
struct misfit {
    const char* plant;
    const char* message; // null: it is used
    const char* before = "";
};
constexpr const char* wrong_size = "] - correct[5800544]";
constexpr const char* give_up_root = "user 65534; ";
constexpr misfit misfits[] = {
    {"truncate -s 0 $P", wrong_size},
    {"truncate -s 1 $P", wrong_size},
    {"truncate -s 5800543 $P", wrong_size},
    {"truncate -s 5800545 $P", wrong_size},
    {"truncate -s $(((1 << 32) + 5800544)) $P", wrong_size},
    {"mkdir $P", "] is a directory"},
    {"mkfifo $P", wrong_size},
    {"python3 -c \"import socket as s; s.socket(s.AF_UNIX).bind('$P')\"", wrong_size},
    {"ln -s /dev/zero $P", wrong_size},
    {"ln -s $P $P", "failed creating ["},
    {"ln -s $S/victim $P", wrong_size},
    {"ln $S/victim $P", wrong_size},
    {"ln -s $S/moved $P", nullptr},
    {"cp $S/moved $P && chmod 0 $P", "failed opening [", give_up_root},
    {"cp $S/moved $P && chmod 444 $P", "failed opening [", give_up_root},
};

} // namespace

TEST(DamagedDataFile, WhatIsNoneIsRefused)
{
    case_count runs;
    for (const misfit& m : misfits) {
        SCOPED_TRACE(m.plant);
        if (m.before == give_up_root && geteuid() != 0) {
            GTEST_SKIP() << "no user to change to";
        }
        const auto directory = new_directory();
        const temp_dir somebody;
        somebody.write("moved", ordinary_file());
        somebody.write("victim", "precious");
        chmod(directory->path().c_str(), 0777);
        const command_run planted =
            run_command("P=" + directory->file(data_file) + " S=" + somebody.path() + "; " + m.plant);
        ASSERT_EQ(planted.exit_status, 0) << planted.output;
        const observed_run run =
            observe(all_on, m.before + ("init; " + use) + "exit 5", {.directory = directory});
        expect_unharmed(run, {.exit_status = 5});
        EXPECT_EQ(run.enabled(), m.message == nullptr);
        EXPECT_TRUE(m.message == nullptr || run.tells(m.message)) << run.incidents();
        EXPECT_EQ(run.tells("perf_log_init : failed opening data_file["), m.message != nullptr);
        EXPECT_EQ(temp_dir::read(somebody.file("victim")), "precious");
        EXPECT_LT(run.host.took_s, patience_s);
        runs.next();
    }
}

namespace {

struct damage {
    std::string name;
    std::function<void(data_file_image& image)> inflict;
    bool keeps_waiting = false; // a lock is waited for, a second at a time
};

void fill_counts(data_file_image& image, uint64_t count)
{
    image.counter_count = image.variable_count = image.error_count = count;
}

void set_locks(data_file_image& image, const std::function<void(lock_slot& slot)>& set)
{
    for (lock_slot& slot : image.locks) {
        set(slot);
    }
    for (counter_entry& entry : image.counters) {
        set(entry.lock);
    }
    for (variable_entry& entry : image.variables) {
        set(entry.lock);
    }
}

// A mutex of another kind than the library's own, as a process that was killed leaves it.
void add_locks_of_kind(std::vector<damage>& all, int type, int robustness, int protocol)
{
    pthread_mutexattr_t kind;
    pthread_mutexattr_init(&kind);
    pthread_mutexattr_settype(&kind, type);
    pthread_mutexattr_setrobust(&kind, robustness);
    pthread_mutexattr_setprotocol(&kind, protocol);
    pthread_mutexattr_setpshared(&kind, PTHREAD_PROCESS_SHARED);
    pthread_mutex_t mutex;
    pthread_mutex_init(&mutex, &kind);
    mutex.__data.__lock = 77;
    mutex.__data.__owner = 77;
    mutex.__data.__count = 1;
    all.push_back({"locks of type " + std::to_string(type) + ", robust " + std::to_string(robustness) +
                       ", protocol " + std::to_string(protocol),
                   [mutex](data_file_image& image) {
                       set_locks(image, [&mutex](lock_slot& slot) { slot.mutex = mutex; });
                   }});
}

// Mutexes of the library's own kind, held by nobody: of the header, or of entries.
damage lock_words(const char* name, int word, bool header)
{
    const auto inflict = [word, header](data_file_image& image) {
        for (lock_slot& slot : image.locks) {
            slot.mutex.__data.__lock = header ? word : 0;
        }
        image.counters[0].lock.mutex.__data.__lock = header ? 0 : word;
        image.variables[0].lock.mutex.__data.__lock = header ? 0 : word;
    };
    return {name, inflict, true};
}

damage filled(unsigned char byte)
{
    return {"bytes " + std::to_string(byte),
            [byte](data_file_image& image) { memset(static_cast<void*>(&image), byte, right_size); }};
}

damage with_counts(uint64_t count)
{
    return {"all counts " + std::to_string(count),
            [count](data_file_image& image) { fill_counts(image, count); }};
}

damage with_values(const char* value)
{
    return {std::string("values ") + value, [value](data_file_image& image) {
                for (variable_entry& entry : image.variables) {
                    strncpy(entry.value, value, sizeof(entry.value));
                }
            }};
}

damage changed_at(int64_t moment_tv)
{
    return {"changed at " + std::to_string(moment_tv),
            [moment_tv](data_file_image& image) { image.variables_modified_tv = moment_tv; }};
}

std::vector<damage> damages()
{
    std::vector<damage> all{
        filled(0),
        filled(0xff),
        filled('A'),
        with_counts(max_errors), // all entries in use
        with_counts(max_errors + 1),
        with_counts(uint64_t{1} << 63U),
        with_counts(~uint64_t{0}),
        with_values("1x,,;-"),
        with_values("99999999999999999999"),
        with_values("-1"),
        changed_at(INT64_MAX),
        changed_at(INT64_MIN),
        {"random",
         [](data_file_image& image) {
             std::minstd_rand random(seed());
             auto* bytes = reinterpret_cast<unsigned char*>(&image);
             std::generate(bytes, bytes + right_size,
                           [&random] { return static_cast<unsigned char>(random()); });
         }},
        {"texts without end everywhere",
         [](data_file_image& image) {
             memset(static_cast<void*>(&image), 'A', right_size);
             set_locks(image, [](lock_slot& slot) { slot = {}; });
             fill_counts(image, max_errors);
         }},
        {"descriptors and offsets of nobody",
         [](data_file_image& image) {
             set_locks(image, [](lock_slot& slot) {
                 slot.fd = INT64_MIN + 3;
                 slot.offset = -64;
                 slot.name = reinterpret_cast<const char*>(1);
             });
         }},
        lock_words("header locks held", 1, true),
        lock_words("header locks waited for", 2, true),
        lock_words("entry locks held", 1, false),
        lock_words("entry locks nonsense", INT32_MIN, false),
    };
    for (const int type : {PTHREAD_MUTEX_NORMAL, PTHREAD_MUTEX_RECURSIVE, PTHREAD_MUTEX_ERRORCHECK}) {
        for (const int robustness : {PTHREAD_MUTEX_STALLED, PTHREAD_MUTEX_ROBUST}) {
            for (const int protocol : {PTHREAD_PRIO_NONE, PTHREAD_PRIO_INHERIT, PTHREAD_PRIO_PROTECT}) {
                if (type != PTHREAD_MUTEX_NORMAL || robustness != PTHREAD_MUTEX_STALLED ||
                    protocol != PTHREAD_PRIO_NONE) { // the library's own
                    add_locks_of_kind(all, type, robustness, protocol);
                }
            }
        }
    }
    return all;
}

std::string damaged_file(const damage& d)
{
    const auto image = std::make_unique<data_file_image>();
    memcpy(static_cast<void*>(image.get()), ordinary_file().data(), right_size);
    d.inflict(*image);
    return {reinterpret_cast<const char*>(image.get()), right_size};
}

// The next host that empties the file finds everything in order.
void expect_healed_by_reset(const std::shared_ptr<temp_dir>& directory)
{
    for (const std::string& trace : directory->files_ending(".txt")) {
        std::filesystem::remove(trace);
    }
    std::string bytes = temp_dir::read(directory->file(data_file));
    bytes.replace(0, sizeof(data_file_image::signature), ordinary_file(), 0, // which is never written again
                  sizeof(data_file_image::signature));
    directory->write(data_file, bytes);
    const observed_run run = observe(with(all_on, {{"ostrum_data_file_reset", "yes"}}),
                                     "init; op 3; op 4 7; exit 5", {.directory = directory});
    expect_unharmed(run, {.exit_status = 5, .complete = true});
    EXPECT_EQ(run.counts.at("counters"), 2U);
    EXPECT_EQ(run.counts.at("errors"), 1U);
}

} // namespace

// While a host uses the file, and before it starts.
TEST(DamagedDataFile, NonsenseInItHarmsNoHost)
{
    case_count runs;
    for (const damage& d : damages()) {
        const std::string bytes = damaged_file(d);
        for (const bool live : {false, true}) {
            for (const char* method : {"0", "1"}) {
                if (!runs.next(d.keeps_waiting ? 16 : 10)) {
                    continue;
                }
                SCOPED_TRACE(testing::Message() << d.name << (live ? ", live" : ", before the start")
                                                << ", lock method " << method);
                const auto directory = new_directory();
                directory->write(live ? "nonsense" : data_file, bytes);
                std::string script = "init; " + use;
                script +=
                    live ? "shell dd if=nonsense of=ostrum_data.dat conv=notrunc bs=1M status=none; " : "";
                script += use;
                script += use + "exit 5";
                const observed_run run =
                    observe(with(all_on, {{"ostrum_lock_method", method}}), script, {.directory = directory});
                expect_unharmed(run, {.exit_status = 5, .untold = true, .damaged_data_file = true});
                EXPECT_TRUE(run.enabled()) << run.incidents();
                EXPECT_LT(run.host.took_s, patience_s);
                expect_healed_by_reset(directory);
            }
        }
    }
}

// A program that looks at the file of a host by the query calls, and sets a variable.
#ifdef OSTRUM_MONITOR
TEST(DamagedDataFile, NonsenseInItHarmsNoMonitoringProgram)
{
    case_count runs;
    const auto directory = new_directory();
    for (const damage& d : damages()) {
        if (runs.next(d.keeps_waiting ? 16 : 4)) {
            SCOPED_TRACE(d.name);
            const std::string path = directory->write(data_file, damaged_file(d));
            const command_run run = run_command("timeout 20 " OSTRUM_MONITOR " -s time_on=1 " + path);
            EXPECT_TRUE(run.exit_status == 0 || run.exit_status == 1) << run.exit_status << run.output;
        }
    }
}
#endif

// A file that is cut or replaced under the hosts that have it mapped.
TEST(DamagedDataFile, ChangedUnderAHostThatHasItMapped)
{
    constexpr int bus_error = 128 + SIGBUS; // the host touches what is no longer there, as documented
    const struct {
        const char* change;
        int exit_status;
    } cases[] = {
        {"truncate -s 0 ostrum_data.dat", bus_error},
        {"truncate -s 4096 ostrum_data.dat", bus_error},
        {"truncate -s 3309960 ostrum_data.dat", bus_error},
        {"truncate -s 0 ostrum_data.dat && truncate -s 5800544 ostrum_data.dat", 5},
        {"truncate -s 9000000 ostrum_data.dat", 5},
        {"rm ostrum_data.dat", 5},
        {"mv ostrum_data.dat old && mkdir ostrum_data.dat", 5},
        {"mv ostrum_data.dat old && mkfifo ostrum_data.dat", 5},
        {"chmod 0 ostrum_data.dat", 5},
    };
    case_count runs;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.change);
        std::string script = std::string("init; op 3; shell ") + c.change + "; " + use;
        script += "sleep 1; " + use + "exit 5";
        const observed_run run = observe(all_on, script);
        if (c.exit_status == bus_error) {
            EXPECT_EQ(run.host.exit_status, sanitized() ? run.host.exit_status : bus_error)
                << run.incidents();
            EXPECT_EQ(run.host.output.find("BAD"), std::string::npos) << run.host.output;
        } else {
            expect_unharmed(run, {.exit_status = 5, .untold = true, .damaged_data_file = true});
        }
        EXPECT_LT(run.host.took_s, patience_s);
        runs.next();
    }
}
