// Slow operations: when an alarm is raised, what its record holds, and the files.
#include "support/tracing_fixture.h"

#include <memory>
#include <thread>

#include <gmock/gmock.h>

#include "data_file/locks.h"
#include "perf_log/alarms/alarm_file.h"
#include "perf_log/flush/alarm_detection.h"
#include "perf_log/flush/async_flusher.h"
#include "perf_log/flush/inside_opcode_flush.h"
#include "perf_log/flush/timed_flush.h"
#include "util/diagnostics.h"

// For the platform's users.
extern "C" QEL_API void qellog_set_correlation(const char* text);

using namespace ostrum;
using fake_os::captured_stderr;
using testing::AllOf;
using testing::HasSubstr;

class Alarms : public tracing_fixture {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(create_context_key(nullptr), 0); }
    Alarms() { set_variable("time_on", "3"); }
    ~Alarms() override { drop_context(); }

    // The limits of the operation in progress; nothing in the library attaches them.
    void attach(std::initializer_list<alarm_limit> limits)
    {
        entry_ = {};
        for (const alarm_limit& limit : limits) {
            entry_.limits[entry_.limit_count] = limit;
            entry_.limits[entry_.limit_count].index = entry_.limit_count;
            ++entry_.limit_count;
        }
        context().alarms = &entry_;
    }
    static alarm_limit limit_of(int64_t threshold_tv, uint32_t flags, const char* severity = "SLOW")
    {
        alarm_limit limit{threshold_tv, 0, flags, 0, ""};
        snprintf(limit.severity, sizeof(limit.severity), "%s", severity);
        return limit;
    }
    // As a thread that has this context waits.
    void flush_in_idle_wait()
    {
        set_thread_slot(&context());
        timeout_handler_func("test");
        set_thread_slot(nullptr);
    }
    void run_slow(int64_t elapsed_tv)
    {
        start({.opcode = 3});
        context().next_alarm_tv = alarm_bucket_get_next_time(&context(), ostrum_now_tv());
        fake_os::advance_clock(elapsed_tv);
        end({.opcode = 3});
    }
    [[nodiscard]] std::string alarms() const { return dir_.text_of(".alarm.txt"); }

    using alarm_owner = std::unique_ptr<alarm_record, void (*)(alarm_record*)>;
    [[nodiscard]] alarm_owner one_level_record() const
    {
        alarm_owner alarm(perf_create_alarm_object(1), release_alarm);
        alarm->limit = &limit_;
        alarm->pid = 7;
        alarm->tid = 8;
        strcpy(alarm->start_text, "from");
        strcpy(alarm->end_text, "to");
        return alarm;
    }

    const alarm_limit limit_ = limit_of(ms, alarm_raised);
    alarm_entry entry_{};
};

TEST_F(Alarms, TheNextTimeIsThatOfTheFirstLimitAhead)
{
    EXPECT_EQ(alarm_bucket_get_next_time(&context(), begin_s * second), 0);
    EXPECT_EQ(context().alarm_at, nullptr);
    start({.opcode = 3});
    const int64_t begun_tv = context().frames[0].start_tv;
    const alarm_limit plain = limit_of(100 * ms, 1);
    const alarm_limit recurring = limit_of(100 * ms, 1 | alarm_recurring);
    const struct {
        const char* name;
        alarm_limit last; // behind those of 10 and 30 ms
        int64_t elapsed_ms, next_ms;
        int32_t current;
    } cases[] = {
        {"ahead", recurring, 9, 10, 0},
        {"a limit that is reached is passed", recurring, 10, 30, 1},
        {"the next whole multiple", recurring, 250, 300, 2},
        {"a multiple that is reached is passed", recurring, 300, 400, 2},
        {"all are passed", plain, 250, 0, 2},
        {"nothing divides by zero", limit_of(0, alarm_recurring), 250, 0, 2},
        {"never", limit_of(INT64_MAX, 1), 250, 0, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        attach({limit_of(10 * ms, 1), limit_of(30 * ms, 1), c.last});
        const int64_t next_tv = alarm_bucket_get_next_time(&context(), begun_tv + c.elapsed_ms * ms);
        EXPECT_EQ(next_tv, c.next_ms == 0 ? 0 : begun_tv + c.next_ms * ms);
        EXPECT_EQ(context().alarm_at, &entry_.limits[c.current]);
    }
    // Parts that were flushed while the call went on count.
    context().frames[0].own = {};
    context().frames[0].own.total_tv = 8 * ms;
    EXPECT_EQ(alarm_bucket_get_next_time(&context(), begun_tv + 3 * ms), begun_tv + 30 * ms - 8 * ms);
    context().frames[0].own.total_tv = 0;
    attach({limit_of(10 * ms, 1)});
    EXPECT_EQ(alarm_bucket_get_next_time(&context(), begun_tv), 0) << "one limit is decided at the end";
    settings_for_startup().alarm_log_at_limit = 1;
    EXPECT_EQ(alarm_bucket_get_next_time(&context(), begun_tv), begun_tv + 10 * ms);
    context().alarms = nullptr;
    end({.opcode = 3});
}

TEST_F(Alarms, AtTheEndTheLimitThatWasPassedCounts)
{
    const struct {
        int64_t elapsed_tv;
        int32_t current;      // limit
        const char* severity; // null: no alarm
    } cases[] = {{5 * ms, 0, nullptr},  {10 * ms, 0, nullptr},  {10 * ms + 1, 0, "FIRST"},
                 {30 * ms, 1, "FIRST"}, {31 * ms, 1, "SECOND"}, {50 * ms, 2, "SECOND"},
                 {100 * ms, 2, nullptr}}; // a threshold without an alarm
    std::string before;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.elapsed_tv);
        attach({limit_of(10 * ms, 1, "FIRST"), limit_of(30 * ms, 1, "SECOND"), limit_of(50 * ms, 0, "NONE")});
        context().alarm_at = &entry_.limits[c.current];
        run({.opcode = 3}, c.elapsed_tv);
        const std::string added = alarms().substr(before.size());
        EXPECT_EQ(count_of(added, "=== ALARM_AT"), c.severity != nullptr ? 1 : 0);
        EXPECT_THAT(added,
                    HasSubstr(c.severity != nullptr ? "SEVERITY[" + std::string(c.severity) + "]" : ""));
        before += added;
    }
}

TEST_F(Alarms, BothFormsAreWrittenToTheLetter)
{
    qellog_set_correlation("order 7");
    attach({limit_of(2500 * ms, alarm_raised | alarm_full_stack, "MAJOR")});
    const auto write = [&](uint32_t flags) {
        entry_.limits[0].flags = flags;
        fake_os::freeze_clock(begin_s * second + 3);
        start({.opcode = 3, .name = "op_three", .flags = 2, .line = 7});
        fake_os::advance_clock(second);
        start({.opcode = 0, .name = "fn", .file = "sql.c", .line = 77});
        fake_os::advance_clock(2 * second);
        write_alarm(&context(), &entry_.limits[0], nullptr, 3 * second, ostrum_now_tv());
        end({});
        end({});
    };
    write(alarm_raised | alarm_full_stack);
    EXPECT_EQ(
        alarms(),
        "=== ALARM_AT[2025/11/15 13:15:03.000000] TYPE[interim] ELAPSED[3.000000000] > S[2.500000000] "
        "MS[2500] SEVERITY[MAJOR] CORRELATION_ID[order 7]\n"
        "OPCODE(3)[op_three] STARTED_AT[2025/11/15 13:15:00.000000] FLAGS[0x2] FILENAME[host.c] LINENO[7] "
        "LVL/TOP/SEQ[001/0000000001/0000000001]\n"
        "OPCODE(0)[fn] STARTED_AT[2025/11/15 13:15:01.000000] FLAGS[0] FILENAME[sql.c] LINENO[77] "
        "LVL/TOP/SEQ[002/0000000001/0000000002]\n");
    EXPECT_EQ(dir_.files_ending(".alarm.txt")[0], own_file(".20251115_131500.20251115_133000.alarm.txt"));

    write(alarm_raised | alarm_full_stack | alarm_tagged | alarm_log_flist);
    EXPECT_EQ(
        dir_.text_of(".alarm.xml"),
        "<alarm type=\"interim\" alarm_t=\"1763212503.000000003\" alarm_time=\"15/11/2025 13:15:03.000000\" "
        "elapsed=\"3.000000000\" threshold=\"2.500000000\" severity=\"MAJOR\">\n"
        "  <correlation_id>order 7</correlation_id>\n"
        "  <opcode_seq>3</opcode_seq>\n"
        "  <opcode id=\"3\" name=\"op_three\" level=\"0\">\n"
        "    <start_t>1763212500.000000003</start_t>\n"
        "    <start_time>2025/11/15 13:15:00.000000</start_time>\n"
        "    <filename>NAP</filename>\n"
        "    <lineno>7</lineno>\n"
        "    <input_flist></input_flist>\n"
        "  </opcode>\n"
        "  <opcode id=\"0\" name=\"fn\" level=\"1\">\n"
        "    <start_t>1763212501.000000003</start_t>\n"
        "    <start_time>2025/11/15 13:15:01.000000</start_time>\n"
        "    <filename>sql.c</filename>\n"
        "    <lineno>77</lineno>\n"
        "    <input_flist></input_flist>\n"
        "  </opcode>\n"
        "</alarm>\n");
}

TEST_F(Alarms, AnAlarmTellsOfTheWholeOperationHoweverItIsTraced)
{
    attach({limit_of(ms, 1)});
    start({.opcode = 3});
    fake_os::advance_clock(10 * second);
    inside_opcode_flush(&context(), ostrum_now_tv());
    write_alarm(&context(), &entry_.limits[0], nullptr, 10 * second, ostrum_now_tv());
    fake_os::advance_clock(5 * second);
    context().alarm_at = &entry_.limits[0];
    end({.opcode = 3});
    const std::string text = alarms();
    EXPECT_EQ(count_of(text, "STARTED_AT[2025/11/15 13:15:00.000000]"), 2) << text;
    EXPECT_THAT(text, HasSubstr("TYPE[final] ELAPSED[15.000000000]"));

    set_variable("time_on", "0");
    run_slow(second);
    EXPECT_EQ(alarms(), text) << "nothing was measured";
    set_variable("flist_on", "2");
    start({.opcode = 3});
    fake_os::advance_clock(second);
    end({.opcode = 3, .name = "given_name", .file = "given.c", .line = 12});
    EXPECT_THAT(alarms(),
                AllOf(HasSubstr("OPCODE(3)[given_name] "), HasSubstr(" FILENAME[given.c] LINENO[12] ")));
}

TEST_F(Alarms, TheTimedFlushRaisesInterimAlarmsAndLooksForTheNextLimit)
{
    attach({limit_of(10 * ms, 1, "FIRST"), limit_of(30 * ms, 1 | alarm_recurring, "SECOND")});
    start({.opcode = 3});
    context().next_alarm_tv = alarm_bucket_get_next_time(&context(), ostrum_now_tv());
    for (const int64_t expected : {0, 1, 1, 2, 2, 2, 3}) { // after 0, 10, 20 ... ms
        flush_in_idle_wait();
        EXPECT_EQ(count_of(alarms(), "TYPE[interim]"), expected);
        fake_os::advance_clock(10 * ms);
    }
    context().alarm_at = nullptr;
    end({.opcode = 3});
    fake_os::advance_clock(second);
    flush_in_idle_wait(); // outside an operation
    EXPECT_EQ(count_of(alarms(), "TYPE[interim]"), 3);
}

TEST_F(Alarms, TheInputListIsRecordedUpToItsLimit)
{
    qel_errbuf_t eb{};
    qel_flist_t* list = qel_flist_create(&eb);
    const int32_t number = 4711;
    qeli_flist_set(list, QEL_FLD(QEL_TYPE_INT, 0x170), 0, &number, &eb);
    const auto text_up_to = [&](int32_t max_bytes) {
        char* text = perf_flist_str(list, max_bytes);
        std::string copy = text != nullptr ? text : "(null)";
        os::release(text);
        return copy;
    };
    const std::string whole = text_up_to(0);
    EXPECT_THAT(whole, HasSubstr("4711"));
    const auto length = static_cast<int32_t>(whole.size());
    EXPECT_EQ(text_up_to(length), whole);
    EXPECT_EQ(text_up_to(length - 1), std::string("Too big to print\n").substr(0, whole.size() - 2));
    EXPECT_EQ(text_up_to(5), "Too ");
    EXPECT_EQ(text_up_to(1), "");
    EXPECT_EQ(perf_flist_str(nullptr, 0), nullptr);
    for (const int32_t bytes : {0, 100}) {
        fake_os::fail(fake_os::call::allocate, 1, ENOMEM);
        EXPECT_THAT(captured_stderr([&] { EXPECT_EQ(text_up_to(bytes), "(null)"); }),
                    HasSubstr("perf_flist_str : out of memory\n"));
    }

    attach({limit_of(ms, alarm_raised | alarm_log_flist)});
    context().alarm_at = &entry_.limits[0];
    start({.opcode = 3});
    context().frames[0].in_flist = list;
    fake_os::advance_clock(2 * ms);
    end({.opcode = 3});
    EXPECT_THAT(alarms(), HasSubstr("\nINPUT_FLIST:\n" + whole));
    qel_flist_destroy(list, &eb);
}

TEST_F(Alarms, AContextKeepsItsFileOpenAsConfigured)
{
    attach({limit_of(ms, 1)});
    context().alarm_mode = keep_alarm_file_open;
    set_variable("alarm_on", "1");
    run_slow(2 * ms);
    EXPECT_TRUE(static_cast<bool>(context().alarm_file)) << "until the next operation decides";
    run_slow(2 * ms);
    EXPECT_TRUE(static_cast<bool>(context().alarm_file));
    fake_os::advance_clock(900 * second);
    flush_in_idle_wait();
    EXPECT_FALSE(static_cast<bool>(context().alarm_file)) << "it is named by the period";
    run_slow(2 * ms);
    EXPECT_EQ(dir_.files_ending(".20251115_133000.20251115_134500.alarm.txt").size(), 1U);
    set_variable("alarm_on", "0");
    start({.opcode = 3});
    EXPECT_FALSE(static_cast<bool>(context().alarm_file));
    context().alarm_at = nullptr;
    end({.opcode = 3});

    const alarm_owner alarm = one_level_record();
    unique_fd slot;
    perf_alarm_persist(&slot, alarm.get(), 0);
    const int kept = slot.get();
    perf_alarm_persist(&slot, alarm.get(), 0);
    EXPECT_EQ(slot.get(), kept);
    perf_alarm_persist(&slot, alarm.get(), 1);
    EXPECT_FALSE(static_cast<bool>(slot)) << "the caller asked for it";
    EXPECT_EQ(count_of(temp_dir::read(dir_.file("7_8.from.to.alarm.txt")), "=== ALARM"), 3);
}

TEST_F(Alarms, TheSharedFileIsWrittenUnderItsLockAndClosed)
{
    settings_for_startup().single_file = true;
    snprintf(settings_for_startup().single_file_base, path_bytes, "%s/all.7", dir_.path().c_str());
    const alarm_owner alarm = one_level_record();
    const std::string path = dir_.file("all.7.from.to.alarm.txt");
    unique_fd slot;
    __perf_data_file_lock(data_file_, DATA_FILE_LOCK_ALARM);
    std::thread writer(perf_alarm_persist, &slot, alarm.get(), 0);
    usleep(50'000);
    EXPECT_EQ(access(path.c_str(), F_OK), -1);
    __perf_data_file_unlock(data_file_, DATA_FILE_LOCK_ALARM);
    writer.join();
    EXPECT_EQ(count_of(temp_dir::read(path), "=== ALARM"), 1);
    EXPECT_FALSE(static_cast<bool>(slot));

    const auto errors_of_one = [&] {
        return captured_stderr([&] { perf_alarm_persist(nullptr, alarm.get(), 0); });
    };
    fake_os::fail(fake_os::call::open_file, 1, EACCES);
    EXPECT_THAT(errors_of_one(),
                HasSubstr("perf_alarm_persist : failed opening alarm file[" + path + "] pid[7] tid[8]\n"));
    fake_os::fail(fake_os::call::write_file, 1, ENOSPC);
    EXPECT_THAT(errors_of_one(), HasSubstr("perf_alarm_persist : failed writing alarm"));
    memset(settings_for_startup().single_file_base, 'q', 1010);
    EXPECT_THAT(errors_of_one(), HasSubstr("perf_alarm_persist : fpath overflow[qqq"));
}

TEST_F(Alarms, WithTheFlusherRecordsAreHandedOverAndWrittenNewestFirst)
{
    settings_for_startup().async_flushing = true;
    attach({limit_of(ms, 1)});
    run_slow(2 * ms);
    run_slow(3 * ms);
    EXPECT_EQ(process_flush_record().alarm_count, 2);
    EXPECT_EQ(alarms(), "");
    process_flush_record().terminate = 1;
    set_debug_bits(debug_general | debug_detail);
    const std::string debug = captured_stderr([] { perf_async_flusher(&process_flush_record()); });
    set_debug_bits(0);
    process_flush_record().terminate = 0;
    settings_for_startup().async_flushing = false;
    EXPECT_THAT(alarms(), testing::ContainsRegex("ELAPSED.0.003000000](.|\n)*ELAPSED.0.002000000]"));
    EXPECT_THAT(debug,
                AllOf(HasSubstr("perf_async_debug_alarm :"), HasSubstr("ALARM NODE[0x"),
                      HasSubstr("Alarm type     : [final]"), HasSubstr("OPCODE STACK - DEPTH[1] of [1]"),
                      HasSubstr("Sequence     : [1/2/2](LVL/TOP/SEQ)"),
                      HasSubstr("perf_alarm_persist : pid[")));

    fake_os::fail(fake_os::call::allocate, 1, ENOMEM);
    EXPECT_THAT(captured_stderr([&] { write_alarm(&context(), &entry_.limits[0], nullptr, ms, 1); }),
                AllOf(HasSubstr("perf_create_alarm_object : failed allocating "),
                      HasSubstr("write_alarm : failed creating alarm\n")));
}
