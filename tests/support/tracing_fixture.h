#ifndef OSTRUM_TESTS_SUPPORT_TRACING_FIXTURE_H
#define OSTRUM_TESTS_SUPPORT_TRACING_FIXTURE_H
// The library's core without its start-up: settings set directly, a data file in a temporary directory,
// a clock to set, and one context to drive events through.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include "config/settings.h"
#include "data_file/variables.h"
#include "perf_log/context/context_list.h"
#include "perf_log/context/thread_slots.h"
#include "perf_log/lifecycle/context_release.h"
#include "perf_log/operation/write_log.h"
#include "process_state/process_state.h"
#include "support/fake_os_fixture.h"
#include "support/temp_dir.h"
#include "support/texts.h"

class tracing_fixture : public fake_os_fixture {
protected:
    static constexpr int64_t ms = 1'000'000;
    static constexpr int64_t second = 1'000'000'000;
    static constexpr int64_t begin_s = 1'763'212'500; // 2025-11-15 13:15:00 UTC, the start of a period

    tracing_fixture()
    {
        fake_os::freeze_clock(begin_s * second);
        ostrum::settings& settings = ostrum::settings_for_startup();
        settings = ostrum::settings{};
        settings.log_directory = dir_.path().c_str();
        settings.aggregation_period = 15;
        settings.aggregation_unit = ostrum::period_unit::minutes;
        settings.flush_frequency_tv = 600 * second;
        settings.status_check_tv = 0;
        data_file_ = __perf_data_file_open(dir_.file("data.dat").c_str(), 0);
        ostrum::set_data_file_handle(data_file_);
    }
    ~tracing_fixture() override
    {
        drop_context();
        ostrum::set_data_file_handle(nullptr);
        __perf_data_file_close(data_file_, 1);
        ostrum::settings_for_startup() = ostrum::settings{};
    }

    void set_variable(const char* name, const char* value)
    {
        fake_os::advance_clock(1);
        rt_variable_add(data_file_, name, value, 1);
        fake_os::advance_clock(1);
    }

    ostrum::log_context& context()
    {
        if (context_ == nullptr) {
            context_ = ostrum::init_log_info(getpid(), ostrum::own_thread_key);
        }
        return *context_;
    }
    void drop_context()
    {
        if (context_ != nullptr) {
            release_loginfo(std::exchange(context_, nullptr));
        }
    }

    struct call {
        int32_t opcode = 3;
        const char* name = "";
        uint32_t flags = 0;
        const char* file = "host.c";
        int32_t line = 10;
        uint32_t end_flags = 0;
        uint32_t errnum = 0;
        int64_t records = 1;
        int64_t obj_id = 0;
        qel_flist_t* flist = nullptr; // input list of the start, output list of the end
    };
    void start(const call& c)
    {
        ostrum::op_event event = event_of(c);
        event.phase = ostrum::op_phase::start;
        event.in_flist = c.flist;
        write_log(&context(), &event);
    }
    void end(const call& c)
    {
        ostrum::op_event event = event_of(c);
        event.phase = ostrum::op_phase::end;
        event.end_flags = c.end_flags;
        event.out_flist = c.flist;
        event.record_count = c.records;
        ebuf_ = {};
        ebuf_.location = 10;
        ebuf_.err_class = 2;
        ebuf_.errnum = c.errnum;
        event.ebuf = &ebuf_;
        write_log(&context(), &event);
    }
    void run(const call& c, int64_t elapsed_tv)
    {
        start(c);
        fake_os::advance_clock(elapsed_tv);
        end(c);
    }

    // The node of a top-level operation, or null.
    static ostrum::agg_node* find_node(bt_tree* tree, int32_t opcode)
    {
        std::pair<int32_t, ostrum::agg_node*> wanted{opcode, nullptr};
        if (tree != nullptr) {
            bt_walk(tree, &wanted, [](void* record, void* arg, int32_t) -> int32_t {
                auto* node = static_cast<ostrum::agg_node*>(record);
                auto& [sought, found] = *static_cast<decltype(wanted)*>(arg);
                found = node->opcode == sought ? node : found;
                return 1;
            });
        }
        return wanted.second;
    }
    ostrum::agg_node* node(int32_t opcode) { return find_node(context().trace.tree, opcode); }

    [[nodiscard]] std::vector<std::string> trace_files() const { return dir_.files_ending(".plog.txt"); }
    [[nodiscard]] std::string trace_text() const { return dir_.text_of(".plog.txt"); }
    // Of the context, by what follows its process and thread.
    [[nodiscard]] std::string own_file(const std::string& rest)
    {
        return dir_.file(std::to_string(getpid()) + "_" + std::to_string(context().trace.tid) + rest);
    }

    temp_dir dir_;
    rt_info* data_file_ = nullptr;
    qel_errbuf_t ebuf_{};

private:
    ostrum::op_event event_of(const call& c)
    {
        ostrum::op_event event{};
        event.now_tv = ostrum_now_tv();
        event.opcode = c.opcode;
        event.opname = c.name;
        event.opflags = c.flags;
        event.program = "tester";
        event.file = c.file;
        event.line = c.line;
        event.obj_type = "/thing";
        event.obj_id = c.obj_id;
        event.db = 1;
        return event;
    }
    ostrum::log_context* context_ = nullptr;
};
#endif
