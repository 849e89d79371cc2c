// Field-list traces: every character of both layouts, which operations they cover, the log's files, the
// list of one operation's timings, and the renaming of finished files.
#include "support/tracing_fixture.h"

#include <memory>
#include <regex>
#include <sys/stat.h>
#include <thread>

#include <gmock/gmock.h>

#include "data_file/locks.h"
#include "flist_trace/flist_file.h"
#include "flist_trace/perf_flist.h"
#include "host_abi/host_fields.h"
#include "host_access/bindings.h"
#include "host_access/flist.h"
#include "perf_log/alarms/alarm_record.h"
#include "perf_log/flush/inside_opcode_flush.h"
#include "perf_log/output/file_rename.h"
#include "util/diagnostics.h"

extern "C" void qellog_set_correlation(const char* text);

using namespace ostrum;
using fake_os::captured_stderr;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::string header = "Timestamp                           Elapsed     Opflags  Opcode\n"
                           "---------                           -------     -------  ------\n";

using list_owner = std::unique_ptr<qel_flist_t, void (*)(qel_flist_t*)>;

list_owner list_with(uint32_t field, const char* text)
{
    qel_errbuf_t eb{};
    list_owner list(p_flist_create(&eb), flist_destroy);
    p_flist_fld_set(list.get(), field, 0, text, &eb);
    return list;
}

} // namespace

class FlistTrace : public tracing_fixture {
protected:
    FlistTrace() { qellog_set_correlation("h:1:tester:1"); }
    ~FlistTrace() override
    {
        bound_host_services() = {};
        qellog_set_correlation(nullptr);
    }

    void trace(const char* flist_on, const char* time_on = "3", const char* opcodes = "")
    {
        set_variable("time_on", time_on);
        set_variable("flist_on", flist_on);
        set_variable("trace_opcodes", opcodes);
    }
    [[nodiscard]] std::vector<std::string> logs() const { return dir_.files_ending(".flog.txt"); }
    // All of the logs, with the numbers of this process and thread replaced.
    std::string text() { return shown(dir_.text_of(".flog.txt")); }
    std::string shown(const std::string& all)
    {
        const std::regex ids(std::to_string(getpid()) + "/" + std::to_string(context().trace.tid));
        return std::regex_replace(all, ids, "PID/TID");
    }
    // What the body adds to the logs.
    template <typename Body>
    std::string added_by(Body body)
    {
        const size_t before = text().size();
        body();
        return text().substr(before);
    }
};

TEST_F(FlistTrace, TreeLinesAreWrittenToTheLetter)
{
    trace("1");
    settings_for_startup().log_correlation_in_call_stack = 1;
    start({.opcode = 7, .flags = 0x100, .obj_id = 42});
    fake_os::advance_clock(50 * ms);
    start({.opcode = 21, .name = "inner", .file = "a_long_file_name.c", .line = 7});
    end({.opcode = 21, .name = "inner", .file = "a_long_file_name.c", .end_flags = 4, .errnum = 6});
    fake_os::advance_clock(2 * second);
    end({.opcode = 7, .errnum = 37});
    const std::string inner = "2025/11/15 13:15:00.050000      0.050000000  ";
    const std::string last = "2025/11/15 13:15:02.050000      2.050000000  host.c      ";
    EXPECT_EQ(text(), header +
                          "2025/11/15 13:15:00.000000      0.000000000       0x100  "
                          "op_search(host.c[10] 0.0.0.1 /thing 42)[h:1:tester:1]\n" +
                          inner + "         0  | inner(a_long_file_name.c[7] 0.0.0.1 /thing 0)\n" + //
                          inner + "a_long_fil      *TXN*\n" +                                       //
                          inner + "a_long_fil    ERROR[6]\n" +                                      //
                          last + "ERROR[37]\n" + last + "<opcode_end op_search>\n");

    for (int32_t depth = 0; depth < 60; ++depth) {
        start({.opcode = 3});
    }
    EXPECT_EQ(count_of(text(), " |"), 1 + 48 * 49 / 2 + 11 * 48); // 48 pairs at most
}

TEST_F(FlistTrace, BlocksAreWrittenToTheLetter)
{
    trace("3"); // and the header
    const list_owner input = list_with(search_text_field, "asked");
    const list_owner output = list_with(list_text_field, "found");
    run({.opcode = 5}, 0);
    EXPECT_THAT(text(), StartsWith(header));
    const std::string at = "] AT[2025/11/15 13:15:00.000000] PID/TID[PID/TID] LVL/TOP/SEQ[";
    const std::string later = "] AT[2025/11/15 13:15:00.050000] PID/TID[PID/TID] LVL/TOP/SEQ[";
    const std::string source = " SRC[host.c, 10] CORRELATION_ID[h:1:tester:1]";
    EXPECT_EQ(
        added_by([&] {
            start({.opcode = 7, .flags = 0x100, .flist = input.get()});
            start({.opcode = 3, .name = "inner", .file = nullptr});
            end({.opcode = 3, .name = "inner", .errnum = 6});
            fake_os::advance_clock(50 * ms);
            end({.opcode = 7, .end_flags = 4, .flist = output.get()});
        }),
        "== IN[op_search] FLAGS[0x100" + at + "1/2/2]" + source + "\n0x5000044 STR      [0] \"asked\"\n" +
            "== IN[inner] FLAGS[0" + at + "2/2/3] SRC[, 10] CORRELATION_ID[h:1:tester:1]\nNULL flist ptr\n" +
            "== OUT[inner] FLAGS[0" + at + "2/2/3]" + source + " TXN_CACHE[NO] ELAPSED[0.000000000]" +
            " ERROR_STATUS[6][error 6 (bad value), class 2 (application), location 10 (application)]\n" +
            "NULL flist ptr\n" + "== OUT[op_search] FLAGS[0" + later + "1/2/2]" + source +
            " TXN_CACHE[YES] ELAPSED[0.050000000]\n" + "0x50023fb STR      [0] \"found\"\n");
}

TEST_F(FlistTrace, CacheHitsAreThoseOfCachedOperations)
{
    trace("2");
    for (const int32_t opcode : {-5, 21, 49, 22, 23, 24, 30, 34, 38, 50}) {
        run({.opcode = opcode, .end_flags = 7}, ms);
    }
    run({.opcode = 21, .end_flags = 3}, ms);
    EXPECT_EQ(count_of(text(), "TXN_CACHE[YES]"), 3);
    EXPECT_EQ(count_of(text(), "TXN_CACHE[NO]"), 8);
}

TEST_F(FlistTrace, ElapsedTimesDependOnWhatIsTimed)
{
    const std::pair<const char*, int64_t> unknown_times[] = {{"0", 2}, {"-1", 2}, {"1", 1}, {"3", 0}};
    for (const auto& [time_on, unknown] : unknown_times) {
        SCOPED_TRACE(time_on);
        trace("2", time_on);
        const std::string added = added_by([this] {
            start({.opcode = 7});
            run({.opcode = 3}, 20 * ms);
            end({.opcode = 7});
        });
        EXPECT_EQ(count_of(added, "ELAPSED[timing-disabled]"), unknown);
        EXPECT_EQ(count_of(added, "ELAPSED[0.020000000]"), 2 - unknown);
    }
    // A flush inside the call starts its figures afresh, not what is shown of it.
    start({.opcode = 7});
    fake_os::advance_clock(second);
    inside_opcode_flush(&context(), ostrum_now_tv());
    end({.opcode = 7});
    EXPECT_EQ(count_of(text(), "ELAPSED[1.000000000]"), 1);
}

TEST_F(FlistTrace, ModeBitsDecideWhatIsWritten)
{
    struct mode_case {
        const char* flist_on;
        int32_t files, headers, lines, blocks;
    };
    for (const mode_case& c : {mode_case{"0", 0, 0, 0, 0},
                               {"-1", 0, 0, 0, 0},
                               {"1", 1, 1, 1, 0},
                               {"2", 1, 0, 0, 2},
                               {"3", 1, 1, 0, 2},
                               {"4", 1, 0, 0, 0}}) {
        SCOPED_TRACE(c.flist_on);
        trace(c.flist_on);
        run({.opcode = 3}, ms);
        EXPECT_EQ(logs().size(), static_cast<size_t>(c.files));
        EXPECT_EQ(count_of(text(), header), c.headers);
        EXPECT_EQ(count_of(text(), "<opcode_end "), c.lines);
        EXPECT_EQ(count_of(text(), "== "), c.blocks);
        trace("0");
        run({.opcode = 3}, ms); // closes
        EXPECT_FALSE(is_open(context().flist_trace));
        for (const std::string& file : logs()) {
            unlink(file.c_str());
        }
    }
}

TEST_F(FlistTrace, TheOutermostOperationDecidesForAllThatItCalls)
{
    trace("2", "3", "3x,7");
    for (const int32_t outer : {3, 7}) {
        start({.opcode = outer});
        run({.opcode = 10 - outer}, ms);
        end({.opcode = outer});
        EXPECT_EQ(count_of(text(), "== "), outer == 3 ? 0 : 4);
    }
    end({.opcode = 9, .name = "of nothing"}); // without a start
    EXPECT_THAT(text(), testing::ContainsRegex("== OUT.of nothing] FLAGS.0] AT.2025/.* LVL/TOP/SEQ.0/"));

    trace("2");
    for (int32_t opcode = -7; opcode < 0; ++opcode) {
        SCOPED_TRACE(opcode);
        EXPECT_EQ(count_of(added_by([&] { run({.opcode = opcode}, ms); }), "== "),
                  opcode >= -6 && opcode <= -4 ? 2 : 0);
    }
}

TEST_F(FlistTrace, EachPeriodHasItsFileAndOneThatCannotBeOpenedIsTriedAgain)
{
    trace("3", "0");
    run({.opcode = 3}, ms);
    const std::string first = own_file(".20251115_131500.20251115_133000.flog.txt");
    const std::string next = own_file(".20251115_133000.20251115_134500.flog.txt");
    EXPECT_EQ(logs(), std::vector{first});

    fake_os::advance_clock(900 * second);
    ASSERT_EQ(mkdir(next.c_str(), 0700), 0);
    EXPECT_THAT(captured_stderr([this] { run({.opcode = 3}, ms); }),
                HasSubstr("open_flist_file : failed opening flist log file[" + next + "] for pid[" +
                          std::to_string(getpid()) + "] tid[" + std::to_string(context().trace.tid) + "]\n"));
    ASSERT_EQ(rmdir(next.c_str()), 0);
    run({.opcode = 3}, ms);
    run({.opcode = 3}, ms);
    EXPECT_EQ(count_of(temp_dir::read(first), "== "), 2);
    EXPECT_THAT(temp_dir::read(next), StartsWith(header));
    EXPECT_EQ(count_of(temp_dir::read(next), "== "), 4);
}

TEST_F(FlistTrace, StandardOutputShowsWhoseLinesTheyAre)
{
    settings_for_startup().flist_log_to_stdout = 1;
    testing::internal::CaptureStdout();
    printf("from the host;");                  // not flushed by it
    for (const char* mode : {"3", "1", "0"}) { // the last one closes the log, not the stream
        trace(mode);
        run({.opcode = 3}, ms);
    }
    printf("from the host again");
    const std::string out = shown(testing::internal::GetCapturedStdout());
    EXPECT_THAT(
        out, testing::AllOf(StartsWith("from the host;== IN["), testing::Not(HasSubstr("Timestamp")),
                            HasSubstr("13:15:00.001000 (PID/TID)      0.000000000  "),
                            HasSubstr("13:15:00.002000 (PID/TID)      0.001000000  host.c      <opcode_end "),
                            testing::EndsWith(">\nfrom the host again")));
    EXPECT_TRUE(logs().empty());
}

// By field number: flags, operation, line; its name, program, file and object type; what it calls; time,
// errors, records, calls, user and system time.
const std::string timings = R"(0x9000376 ARRAY    [0]
    0x1000034 INT      [0] 256
    0x1000170 INT      [0] 7
    0x10f44ad INT      [0] 10
    0x5000011 STR      [0] "op_search"
    0x5000043 STR      [0] "tester"
    0x50001f4 STR      [0] "host.c"
    0x500233b STR      [0] "/thing"
    0x9000376 ARRAY    [0]
        0x1000034 INT      [0] 0
        0x1000170 INT      [0] 3
        0x10f44ad INT      [0] 10
        0x5000011 STR      [0] "inner"
        0x5000043 STR      [0] "tester"
        0x50001f4 STR      [0] "host.c"
        0x500233b STR      [0] "/thing"
        0xe0f44ae DECIMAL  [0] 0.05
        0xe0f44b7 DECIMAL  [0] 1
        0xe0f44b8 DECIMAL  [0] 2
        0xe0f44b9 DECIMAL  [0] 2
        0xe0f44bb DECIMAL  [0] 0
        0xe0f44bc DECIMAL  [0] 0
    0xe0f44ae DECIMAL  [0] 0.05
    0xe0f44b7 DECIMAL  [0] 0
    0xe0f44b8 DECIMAL  [0] 9
    0xe0f44b9 DECIMAL  [0] 1
    0xe0f44bb DECIMAL  [0] 0
    0xe0f44bc DECIMAL  [0] 0
)";

class PerfFlist : public FlistTrace {
protected:
    // An operation that calls two others, with the per-operation tree on.
    void run_single(qel_flist_t* output)
    {
        context().single_tree_active = true;
        start({.opcode = 7, .flags = 0x100});
        run({.opcode = 3, .name = "inner", .errnum = 6}, 25 * ms);
        run({.opcode = 3, .name = "inner"}, 25 * ms);
        end({.opcode = 7, .records = 9, .flist = output});
        EXPECT_FALSE(context().single_tree_active);
        EXPECT_EQ(find_node(context().single_tree, 7), nullptr);
    }
};

TEST_F(PerfFlist, TimingsReturnInTheOutputList)
{
    for (const char* time_on : {"0", "3"}) {
        SCOPED_TRACE(time_on);
        set_variable("time_on", time_on);
        const list_owner output = list_with(list_text_field, "the host's own");
        run_single(output.get());
        qel_errbuf_t eb{};
        auto* own = static_cast<qel_flist_t*>(p_flist_fld_get(output.get(), perf_flist_field, 0, 0, &eb));
        char* text = perf_flist_str(own, 0);
        ASSERT_NE(text, nullptr);
        EXPECT_EQ(text, timings);
        os::release(text);
    }
}

TEST_F(PerfFlist, WithoutAnOutputListItIsShownWhenDebugging)
{
    for (const int32_t debug : {0, 1}) {
        set_debug_bits(debug);
        testing::internal::CaptureStdout();
        const std::string said = captured_stderr([this] { run_single(nullptr); });
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  debug == 1 ? "flist for opcode with no output flist:\n" + timings : "");
        EXPECT_EQ(count_of(said, "build_perf_flist: single opcode trace output len["), 2 * debug); // per tree
    }
}

TEST_F(PerfFlist, FailuresOfTheHostAreReported)
{
    EXPECT_THAT(captured_stderr([] { EXPECT_EQ(build_perf_flist(nullptr, nullptr, 1), 0); }),
                HasSubstr("build_perf_flist: flist ptr is NULL\n"));
    const list_owner output = list_with(list_text_field, "");
    bound_host_services().flist_set = [](auto*, uint32_t, int32_t, auto*, auto* eb) { eb->errnum = 6; };
    EXPECT_EQ(count_of(captured_stderr([&] { run_single(output.get()); }),
                       "build_perf_flist : failed - error 6 (bad value)"),
              1);
}

TEST_F(FlistTrace, FinishedFilesAreRenamedOnlyToFreeNames)
{
    const std::string source = dir_.write("source", "text");
    const std::string none = dir_.file("none");
    const std::string directory = dir_.path();
    const std::tuple<std::string, std::string, int32_t, std::string> refused[] = {
        {"", "x", -1, "source filename is empty\n"},
        {source, "", -2, "target filename is empty\n"},
        {none, "x", -3, "source filename[" + none + "] doesn't exist\n"},
        {source, source, -4, "target filename[" + source + "] already exists\n"},
        {source, directory, -4, "target filename[" + directory + "] already exists\n"}};
    for (const auto& [from, to, result, message] : refused) {
        int32_t checked = 0;
        const std::string said = captured_stderr([&, f = from.c_str(), t = to.c_str()] {
            checked = check_file_rename(f, t);
            EXPECT_EQ(__rename_trace_file(data_file_, f, t), 0);
        });
        EXPECT_EQ(checked, result);
        EXPECT_EQ(count_of(said, "check_file_rename: " + message), 2) << said;
    }
    const std::string nowhere = dir_.file("no/target");
    EXPECT_THAT(captured_stderr(
                    [&] { EXPECT_EQ(__rename_trace_file(nullptr, source.c_str(), nowhere.c_str()), -1); }),
                HasSubstr("file_rename: failed renaming[" + source + "] -> [" + nowhere + "] - errno[2]("));
    EXPECT_EQ(__rename_trace_file(data_file_, source.c_str(), none.c_str()), 0);
    EXPECT_EQ(temp_dir::read(none), "text");
    EXPECT_EQ(access(source.c_str(), F_OK), -1);
}

TEST_F(FlistTrace, LinesShowWhatIsMissingAndNoTimesWhileTimingIsOff)
{
    trace("1", "0");
    op_event event{};
    event.phase = op_phase::start;
    event.opcode = -5;
    event.obj_id = -1;
    event.db = 0x000100000000FFFF;
    write_log(&context(), &event); // at the present time
    fake_os::advance_clock(second);
    event.phase = op_phase::end;
    write_log(&context(), &event);
    EXPECT_EQ(text(), header +
                          "2025/11/15 13:15:00.000000      0.000000000           0  "
                          "VRT_OP_CONTEXT_CLOSE([0] 1.0.0.-1 / -1)\n"
                          "2025/11/15 13:15:01.000000      0.000000000  " +
                          std::string(10, ' ') + "  <opcode_end VRT_OP_CONTEXT_CLOSE>\n");
}

TEST_F(FlistTrace, RenamingWaitsForThoseWhoWriteTheFile)
{
    const std::pair<int32_t, decltype(&__rename_trace_file)> cases[] = {
        {DATA_FILE_LOCK_TRACE, __rename_trace_file}, {DATA_FILE_LOCK_ALARM, __rename_alarm_file}};
    for (const auto& [lock, rename_file] : cases) {
        SCOPED_TRACE(lock);
        const std::string source = dir_.write("source", "text");
        const std::string target = dir_.file("target." + std::to_string(lock));
        __perf_data_file_lock(data_file_, lock);
        std::thread renamer(rename_file, data_file_, source.c_str(), target.c_str());
        usleep(50'000);
        EXPECT_EQ(access(target.c_str(), F_OK), -1);
        __perf_data_file_unlock(data_file_, lock);
        renamer.join();
        EXPECT_EQ(temp_dir::read(target), "text");
    }
}
