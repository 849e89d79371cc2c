#ifndef OSTRUM_TESTS_COMPONENT_DATA_FILE_FIXTURE_H
#define OSTRUM_TESTS_COMPONENT_DATA_FILE_FIXTURE_H
// A data file of its own for each test, opened as a host opens it.
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "config/settings.h"
#include "data_file/counters.h"
#include "data_file/errors.h"
#include "data_file/locks.h"
#include "data_file/variables.h"
#include "support/fake_os_fixture.h"
#include "support/temp_dir.h"

inline constexpr uint32_t host_flags = DATA_FILE_INIT_LOCKS | DATA_FILE_SET_PID;

struct free_block {
    void operator()(void* block) const { free(block); }
};
template <typename T>
using c_block = std::unique_ptr<T, free_block>;

class data_file_fixture : public fake_os_fixture {
protected:
    data_file_fixture() { ostrum::settings_for_startup() = {}; }
    ~data_file_fixture() override { close(); }

    rt_info* open(uint32_t flags = host_flags)
    {
        close();
        handle_ = __perf_data_file_open(path().c_str(), flags);
        return handle_;
    }
    void close()
    {
        if (handle_ != nullptr) {
            __perf_data_file_close(std::exchange(handle_, nullptr), 0);
        }
    }
    [[nodiscard]] std::string path() const { return dir_.file("stats.dat"); }
    [[nodiscard]] ostrum::data_file_image& image() const { return *handle_->image; }

    // A counter and an error of the given key numbers, each key text empty.
    ostrum::counter_entry* add_counter(int32_t opcode, int64_t calls = 1)
    {
        return rt_counter_add(handle_, opcode, "name", 0, 0, "", "", "", 0, calls, 0, 0, 0, 0, 0);
    }
    ostrum::error_entry* add_error(uint32_t errnum, int64_t count = 1)
    {
        return rt_error_add(handle_, 0, 0, "", "", 0, 0, errnum, count);
    }

    // Exit status of a child that runs the body.
    template <typename Body>
    static int in_child(Body body)
    {
        const pid_t child = fork();
        if (child == 0) {
            body();
            _exit(0);
        }
        int status = -1;
        waitpid(child, &status, 0);
        return status;
    }

    template <typename Body>
    static int64_t milliseconds(Body body)
    {
        const auto start = std::chrono::steady_clock::now();
        body();
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
            .count();
    }

    temp_dir dir_;
    rt_info* handle_ = nullptr;
};
#endif
