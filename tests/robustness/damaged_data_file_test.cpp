// The data file is no data file, holds nonsense, or is changed under the hosts that have it mapped.
#include <filesystem>
#include <functional>
#include <iostream>
#include <random>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "data_file/layout.h"
#include "robustness/host_oracle.h"
#include "support/run_command.h"

namespace {

using namespace ostrum;

constexpr const char* data_file = "ostrum_data.dat";
constexpr size_t right_size = sizeof(data_file_image);
const std::vector<host_setting> all_on{{"ostrum_status_check_frequency", "0"},
                                       {"ostrum_error_counter_level", "63"},
                                       {"ostrum_max_log_size", "4"}};

// Everything that reads or writes the data file.
const std::string use =
    "op 3; op 4 7; start 5; start 6; end; end; op_key 1 7 9; variable own x; variable own y;"
    "query; flist_op 8; thread {op 10 1}; select 1; ";

double patience_s()
{
    return sanitized() ? 40 : 5;
}

// What an ordinary host has left.
const std::string& ordinary_file()
{
    static const std::string bytes = [] {
        const observed_run run = observe(all_on, "init; " + use + "exit 5");
        return temp_dir::read(run.host.directory->file(data_file));
    }();
    return bytes;
}

} // namespace

// ---- No data file ----

namespace {

void make_socket(const std::string& path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    (void)::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    close(fd);
}

// What lies where the data file should; null message: it is used.
struct misfit {
    const char* name;
    std::function<void(const std::string& path, const temp_dir& outside)> plant;
    const char* message;
    bool gives_up_root = false;
};

void write_file(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

misfit of_size(const char* name, uintmax_t bytes)
{
    return {name,
            [bytes](const std::string& path, const temp_dir&) {
                write_file(path, "");
                std::filesystem::resize_file(path, bytes);
            },
            "] - correct[5800544]"};
}

const std::vector<misfit>& misfits()
{
    using path = const std::string&;
    using dir = const temp_dir&;
    static const std::vector<misfit> all{
        of_size("empty", 0),
        of_size("a byte", 1),
        of_size("a byte short", right_size - 1),
        of_size("a byte too long", right_size + 1),
        of_size("right in 32 bits", (uintmax_t{1} << 32U) + right_size),
        {"directory", [](path p, dir) { std::filesystem::create_directory(p); }, "] is a directory"},
        {"FIFO", [](path p, dir) { mkfifo(p.c_str(), 0666); }, "] - correct[5800544]"},
        {"socket", [](path p, dir) { make_socket(p); }, "] - correct[5800544]"},
        {"device", [](path p, dir) { std::filesystem::create_symlink("/dev/zero", p); },
         "] - correct[5800544]"},
        {"link to itself", [](path p, dir) { std::filesystem::create_symlink(p, p); }, "failed creating ["},
        {"link to somebody's file",
         [](path p, dir outside) { std::filesystem::create_symlink(outside.write("victim", "precious"), p); },
         "] - correct[5800544]"},
        {"hard link to somebody's file",
         [](path p, dir outside) {
             std::filesystem::create_hard_link(outside.write("victim", "precious"), p);
         },
         "] - correct[5800544]"},
        {"link to a data file",
         [](path p, dir outside) {
             std::filesystem::create_symlink(outside.write("moved", ordinary_file()), p);
         },
         nullptr},
        {"no permission",
         [](path p, dir) {
             write_file(p, ordinary_file());
             chmod(p.c_str(), 0);
         },
         "failed opening [", true},
        {"only to be read",
         [](path p, dir) {
             write_file(p, ordinary_file());
             chmod(p.c_str(), 0444);
         },
         "failed opening [", true},
    };
    return all;
}

} // namespace

TEST(DamagedDataFile, WhatIsNoneIsRefused)
{
    int runs = 0;
    for (const misfit& m : misfits()) {
        SCOPED_TRACE(m.name);
        if (m.gives_up_root && geteuid() != 0) {
            GTEST_SKIP() << "no user to change to";
        }
        const auto directory = new_directory();
        const temp_dir outside;
        chmod(directory->path().c_str(), 0777);
        m.plant(directory->file(data_file), outside);
        const observed_run run =
            observe(all_on, (m.gives_up_root ? "user 65534; init; " : "init; ") + use + "exit 5",
                    {.directory = directory});
        expect_unharmed(run, {.exit_status = 5});
        EXPECT_EQ(run.enabled(), m.message == nullptr);
        if (m.message != nullptr) {
            EXPECT_NE(run.incidents().find(m.message), std::string::npos) << run.incidents();
            EXPECT_NE(run.incidents().find("perf_log_init : failed opening data_file["), std::string::npos);
        }
        if (std::filesystem::exists(outside.file("victim"))) {
            EXPECT_EQ(temp_dir::read(outside.file("victim")), "precious");
        }
        EXPECT_LT(run.host.took_s, patience_s());
        ++runs;
    }
    std::cout << runs << " runs\n";
}

// ---- Nonsense in it ----

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

template <size_t N>
void fill_text(char (&text)[N])
{
    memset(text, 'A', N);
}

void leave_texts_without_end(data_file_image& image)
{
    fill_text(image.signature);
    for (counter_entry& entry : image.counters) {
        fill_text(entry.opname);
        fill_text(entry.program);
        fill_text(entry.fname);
        fill_text(entry.obj_type);
    }
    for (variable_entry& entry : image.variables) {
        fill_text(entry.name);
        fill_text(entry.value);
    }
    for (error_entry& entry : image.errors) {
        fill_text(entry.opname);
        fill_text(entry.program);
    }
}

void set_values(data_file_image& image, const char* value)
{
    for (variable_entry& entry : image.variables) {
        strncpy(entry.value, value, sizeof(entry.value));
    }
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
damage locks_of_kind(int type, int robustness, int protocol)
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
    return {"locks of type " + std::to_string(type) + ", robust " + std::to_string(robustness) +
                ", protocol " + std::to_string(protocol),
            [mutex](data_file_image& image) {
                set_locks(image, [&mutex](lock_slot& slot) { slot.mutex = mutex; });
            }};
}

// Mutexes of the library's own kind, held by nobody.
damage lock_words(const char* name, int word, bool header)
{
    return {name,
            [word, header](data_file_image& image) {
                if (header) {
                    for (lock_slot& slot : image.locks) {
                        slot.mutex.__data.__lock = word;
                    }
                } else {
                    image.counters[0].lock.mutex.__data.__lock = word;
                    image.variables[0].lock.mutex.__data.__lock = word;
                }
            },
            true};
}

damage filled(const char* name, unsigned char byte)
{
    return {name, [byte](data_file_image& image) { memset(static_cast<void*>(&image), byte, right_size); }};
}

std::vector<damage> damages()
{
    std::vector<damage> all{
        filled("zeros", 0),
        filled("ones", 0xff),
        filled("letters", 'A'),
        {"random",
         [](data_file_image& image) {
             std::minstd_rand random(seed());
             auto* bytes = reinterpret_cast<unsigned char*>(&image);
             std::generate(bytes, bytes + right_size,
                           [&random] { return static_cast<unsigned char>(random()); });
         }},
        {"all entries in use", [](data_file_image& image) { fill_counts(image, max_errors); }},
        {"a bit too many", [](data_file_image& image) { fill_counts(image, max_errors + 1); }},
        {"all counts 2^63", [](data_file_image& image) { fill_counts(image, uint64_t{1} << 63U); }},
        {"all counts 2^64 - 1", [](data_file_image& image) { fill_counts(image, ~uint64_t{0}); }},
        {"texts without end", leave_texts_without_end},
        {"texts without end everywhere",
         [](data_file_image& image) {
             leave_texts_without_end(image);
             fill_counts(image, max_errors);
         }},
        {"values that are no numbers", [](data_file_image& image) { set_values(image, "1x,,;-"); }},
        {"values beyond numbers", [](data_file_image& image) { set_values(image, "99999999999999999999"); }},
        {"values below zero", [](data_file_image& image) { set_values(image, "-1"); }},
        {"changed in a far future", [](data_file_image& image) { image.variables_modified_tv = INT64_MAX; }},
        {"changed before all time", [](data_file_image& image) { image.variables_modified_tv = INT64_MIN; }},
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
                const bool own = type == PTHREAD_MUTEX_NORMAL && robustness == PTHREAD_MUTEX_STALLED &&
                                 protocol == PTHREAD_PRIO_NONE;
                if (!own) {
                    all.push_back(locks_of_kind(type, robustness, protocol));
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
    std::vector<host_setting> settings = all_on;
    for (const std::string& trace : directory->files_ending(".txt")) {
        std::filesystem::remove(trace);
    }
    std::string bytes = temp_dir::read(directory->file(data_file));
    bytes.replace(0, sizeof(data_file_image::signature), ordinary_file(), 0, // which is never written again
                  sizeof(data_file_image::signature));
    directory->write(data_file, bytes);
    settings.push_back({"ostrum_data_file_reset", "yes"});
    const observed_run run = observe(settings, "init; op 3; op 4 7; exit 5", {.directory = directory});
    expect_unharmed(run, {.exit_status = 5});
    EXPECT_EQ(run.incidents(), "");
    EXPECT_EQ(run.written, run.issued);
    EXPECT_EQ(run.counts.at("counters"), 2U);
    EXPECT_EQ(run.counts.at("errors"), 1U);
}

} // namespace

// While a host uses the file, and before it starts.
TEST(DamagedDataFile, NonsenseInItHarmsNoHost)
{
    int runs = 0;
    unsigned number = 0;
    for (const damage& d : damages()) {
        const std::string bytes = damaged_file(d);
        for (const bool live : {false, true}) {
            for (const char* method : {"0", "1"}) {
                if (!takes_part(number++, d.keeps_waiting ? 16 : 10)) {
                    continue;
                }
                SCOPED_TRACE(testing::Message() << d.name << (live ? ", live" : ", before the start")
                                                << ", lock method " << method);
                const auto directory = new_directory();
                directory->write(live ? "nonsense" : data_file, bytes);
                std::vector<host_setting> settings = all_on;
                settings.push_back({"ostrum_lock_method", method});
                const std::string inflict =
                    live ? use + "shell dd if=nonsense of=ostrum_data.dat conv=notrunc bs=1M status=none; "
                         : "";
                std::string script = "init; " + inflict;
                script += use;
                script += use + "exit 5";
                const observed_run run = observe(settings, script, {.directory = directory});
                expect_unharmed(run, {.exit_status = 5, .untold = true, .damaged_data_file = true});
                EXPECT_TRUE(run.enabled()) << run.incidents();
                EXPECT_LT(run.host.took_s, d.keeps_waiting ? 40 : patience_s());
                expect_healed_by_reset(directory);
                ++runs;
            }
        }
    }
    std::cout << runs << " runs\n";
}

// A program that looks at the file of a host by the query calls, and sets a variable.
TEST(DamagedDataFile, NonsenseInItHarmsNoMonitoringProgram)
{
#ifndef OSTRUM_MONITOR
    GTEST_SKIP() << "the monitor is not built";
#else
    int runs = 0;
    unsigned number = 0;
    const auto directory = new_directory();
    for (const damage& d : damages()) {
        if (!takes_part(number++, d.keeps_waiting ? 16 : 4)) {
            continue;
        }
        const std::string path = directory->write(data_file, damaged_file(d));
        const command_run run = run_command("timeout 20 " OSTRUM_MONITOR " -s time_on=1 " + path);
        EXPECT_TRUE(run.exit_status == 0 || run.exit_status == 1)
            << d.name << " gives " << run.exit_status << "\n"
            << run.output;
        ++runs;
    }
    std::cout << runs << " runs\n";
#endif
}

// ---- A file that is cut or replaced under the hosts that have it mapped ----

TEST(DamagedDataFile, ChangedUnderAHostThatHasItMapped)
{
    constexpr int bus_error = 128 + SIGBUS;
    const std::string name = data_file;
    const struct {
        std::string change;
        int exit_status; // bus_error: the host touches what is no longer there, as documented
    } cases[] = {
        {"truncate -s 0 " + name, bus_error},
        {"truncate -s 4096 " + name, bus_error},
        {"truncate -s 3309960 " + name, bus_error},
        {"truncate -s 0 " + name + "&& truncate -s 5800544 " + name, 5},
        {"truncate -s 9000000 " + name, 5},
        {"rm " + name, 5},
        {"mv " + name + " old && mkdir " + name, 5},
        {"mv " + name + " old && mkfifo " + name, 5},
        {"chmod 0 " + name, 5},
    };
    int runs = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.change);
        std::string script = "init; op 3; shell " + c.change + "; ";
        script += use + "sleep 1; ";
        script += use + "exit 5";
        const observed_run run = observe(all_on, script);
        if (c.exit_status == bus_error) {
            EXPECT_EQ(run.host.exit_status, sanitized() ? run.host.exit_status : bus_error)
                << run.incidents();
            EXPECT_EQ(run.host.output.find("BAD"), std::string::npos) << run.host.output;
        } else {
            expect_unharmed(run, {.exit_status = 5, .untold = true, .damaged_data_file = true});
        }
        EXPECT_LT(run.host.took_s, patience_s());
        ++runs;
    }
    std::cout << runs << " runs\n";
}
