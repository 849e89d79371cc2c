// Data files as metrics: the two forms, what becomes a label, the textfile, the shipped rules and dashboard.
#include <set>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "prometheus/data_file_metrics.h"
#include "serve/accept_header.h"
#include "tool/data_image.h"
#include "tool/tool_fixture.h"

using namespace ostrum_tool;
using namespace tool_test;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string exported(const std::string& path, const std::vector<std::string>& more = {})
{
    return run_with({"export", "--prometheus", "-", path}, more).out;
}

// What any reader relies on: every family once, every series once, in its family. Returns the names of the
// samples.
std::set<std::string> check_form(const std::string& text, exposition_format format)
{
    std::set<std::string> families, series, names;
    std::string family;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        SCOPED_TRACE(line);
        const bool is_head = line.starts_with("# TYPE ");
        if (is_head) {
            family = line.substr(7, line.find(' ', 7) - 7);
            EXPECT_TRUE(families.insert(family).second);
        }
        if (line.starts_with("#")) {
            continue;
        }
        const std::string name = line.substr(0, line.find('{'));
        const std::string ending = name.substr(std::min(family.size(), name.size()));
        EXPECT_TRUE(name.starts_with(family));
        EXPECT_TRUE(ending.empty() || (format == exposition_format::openmetrics_1_0 &&
                                       (ending == "_total" || ending == "_info")));
        EXPECT_TRUE(series.insert(line.substr(0, line.find_last_of(' '))).second);
        EXPECT_THAT(line, testing::MatchesRegex("[a-z_]+[{]([a-z_]+=\"([^\"\\]|\\\\.)*\",?)*[}] -?[0-9.]+"));
        names.insert(name);
    }
    return names;
}

std::set<std::string> names_used_in(const std::string& file)
{
    const std::string text = temp_dir::read(std::string(OSTRUM_SHARE) + "/" + file);
    std::set<std::string> used;
    for (size_t at = text.find("ostrum_"); at != std::string::npos; at = text.find("ostrum_", at + 1)) {
        const size_t end = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz_", at);
        if (at == 0 || std::string(" (\"").find(text[at - 1]) != std::string::npos) {
            used.insert(text.substr(at, end - at));
        }
    }
    return used;
}

} // namespace

TEST(Exposition, IsWellFormedWhateverTheFileHolds)
{
    const temp_dir dir;
    const std::string path = dir.write("d.dat", full_sample().bytes());
    const std::string other = dir.write("\"{}\n.dat", full_sample().bytes());
    const auto files = read_exported_files({path, other, path, dir.file("none")});
    for (const auto format : {exposition_format::text_0_0_4, exposition_format::openmetrics_1_0}) {
        const std::string text = exposition_of(files, {}, format);
        check_form(text, format);
        EXPECT_EQ(text.ends_with("\n# EOF\n"), format == exposition_format::openmetrics_1_0);
    }
    const std::string openmetrics = exposition_of(files, {}, exposition_format::openmetrics_1_0);
    EXPECT_THAT(openmetrics, HasSubstr("# TYPE ostrum_operation_duration_seconds counter\n"
                                       "# UNIT ostrum_operation_duration_seconds seconds\n"
                                       "ostrum_operation_duration_seconds_total{"));
    EXPECT_THAT(openmetrics, HasSubstr("# TYPE ostrum_variable_text info\n"));
}

TEST(Exposition, LosesNoNanosecondAndAddsUpWhatIsNoLabel)
{
    const temp_dir dir;
    const std::string path = dir.write("d.dat", full_sample().bytes());
    const std::string file = "data_file=\"" + path + "\"";
    const std::string text = exported(path);
    const std::string search =
        file + R"(,name="sea\"rch\\",opcode="7",flags="0",program="dm",type="/part",db="0.0.0.0"} )";
    for (
        const std::string& line :
        {"ostrum_operation_calls_total{" + search + "7",
         "ostrum_operation_duration_seconds_total{" + search + "2.000000002",
         "calls_total{" + file +
             R"(,name="\\x01\\x0A\\xFF",opcode="0",flags="0",program="dm",type="/part",db="0.0.0.0"} 18446744073709551615)",
         "calls_total{" + file +
             R"(,name="\\x01\\x0A\\xFF",opcode="0",flags="0",type="/part",db="0.0.0.0"} 1)",
         std::string("\"} 18446744073.709551615"),
         "ostrum_variables_changed_timestamp_seconds{" + file + "} 1795256941.000000005",
         "ostrum_variable{" + file + ",name=\"time_on\"} 3",
         "_info{" + file + R"(,name="text",value="a,\"b\""} 1)",
         "_info{" + file + ",name=\"odd\",value=\"inf\"} 1",
         "ostrum_table_entries{" + file + ",table=\"errors\"} 2",
         "ostrum_process_cpu_seconds_total{" + file + ",mode=\"system\"} 0.000000003",
         "ostrum_dm_info{" + file + ",db=\"0.0.0.9\"} 1",
         "ostrum_dm_fe_connects_error_total{" + file + "} 26"}) {
        EXPECT_THAT(text, HasSubstr(line + "\n"));
    }
    EXPECT_THAT(exported(path, {"--labels", "operation,line", "--error-labels", "program"}),
                AllOf(HasSubstr("\"7\",line=\"12\"} 4\n"), HasSubstr("\"7\",line=\"13\"} 3\n"),
                      HasSubstr("opcode=\"0\",line=\"1\"} 18446744073709551615\n"), // no sum runs over
                      HasSubstr("ostrum_errors_total{" + file + ",program=\"dm\"} 6\n")));
}

TEST(Exposition, SaysNothingOfWhatIsNotKnown)
{
    const temp_dir dir;
    const std::string text =
        exported(dir.write("d.dat", image_builder().metric(5, ~0ULL).metric(10, 3).bytes()));
    EXPECT_THAT(text, AllOf(Not(HasSubstr("ostrum_process_children")),
                            Not(HasSubstr("ostrum_process_resident")), Not(HasSubstr("ostrum_dm_")),
                            Not(HasSubstr("timestamp")), HasSubstr("ostrum_process_updates_total{")));
}

TEST(AcceptHeader, ChoosesTheForm)
{
    const std::pair<const char*, bool> cases[] = {
        {"", false},
        {"*/*", false},
        {"application/openmetrics-text;version=1.0.0,application/openmetrics-text;version=0.0.1;q=0.75,"
         "text/plain;version=0.0.4;q=0.5,*/*;q=0.1",
         true},
        {"text/plain;version=0.0.4, Application/OpenMetrics-Text ; Version=\"1.0.0\" ; Q=0.5", false},
        {"application/openmetrics-text", true},
        {"application/openmetrics-text;version=0.0.1", false},
        {"application/openmetrics-text;q=0", false},
        {"application/openmetrics-text;q=x,,;=;,", true},
        {"text/html,application/xhtml+xml;q=0.9", false}};
    for (const auto& [accept, openmetrics] : cases) {
        EXPECT_EQ(format_for(accept) == exposition_format::openmetrics_1_0, openmetrics) << accept;
    }
}

TEST(PrometheusTextfile, IsThereWholeOrAsItWas)
{
    const temp_dir dir;
    const std::string data = dir.write("d.dat", full_sample().bytes());
    const std::string target = dir.write("o.prom", "old");
    const auto write = [&](const std::string& to, const std::string& from) {
        return run({"export", "--prometheus", to, from}).status;
    };
    const std::string stale = dir.write(".o.prom.99999999.tmp", "of a killed process");
    const std::string others = dir.write(".o.prom.new.1.tmp", "no draft of this file");
    const int written_now = open(dir.write(".o.prom.1.tmp", "").c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(flock(written_now, LOCK_EX), 0);
    EXPECT_EQ(write(target, data), 0);
    EXPECT_EQ(dir.read(target), exported(data));
    EXPECT_EQ(dir.files_ending(".tmp"), (std::vector{dir.file(".o.prom.1.tmp"), others})) << stale;
    close(written_now);
    struct stat status {};
    EXPECT_EQ(stat(target.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0444U, 0444U) << "collectors run as other users";
    EXPECT_EQ(write(target, dir.file("none")), 1) << "the file says so too:";
    EXPECT_THAT(dir.read(target),
                HasSubstr("ostrum_data_file_up{data_file=\"" + dir.file("none") + "\"} 0\n"));
    EXPECT_EQ(write(target, dir.write("damaged.dat", image_builder().word(2'687'344, 5'000).bytes())), 5);
    EXPECT_THAT(dir.read(target), HasSubstr("damaged.dat\"} 1\n"));
    EXPECT_EQ(write("/dev/null", data), 1);
    EXPECT_EQ(write(dir.path(), data), 1);
    EXPECT_EQ(write(dir.file("none/o.prom"), data), 1);
    EXPECT_EQ(run({"export", "--prometheus", target, "--pid", "1", data}).status, 2);
    const auto entries = std::filesystem::directory_iterator(dir.path());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 4)
        << "nothing is left beside the files and what is others'";
}

TEST(PrometheusShare, NamesOnlyMetricsThatThereAre)
{
    const temp_dir dir;
    const auto files = read_exported_files({dir.write("d.dat", full_sample().bytes())});
    const auto names =
        check_form(exposition_of(files, {}, exposition_format::text_0_0_4), exposition_format::text_0_0_4);
    for (const auto& [file, least] :
         {std::pair("grafana_dashboard.json", 15U), std::pair("prometheus_rules.yml", 8U)}) {
        std::set<std::string> used = names_used_in(file);
        used.erase("ostrum_operations"); // names of groups
        used.erase("ostrum_alerts");
        EXPECT_GE(used.size(), least) << file;
        EXPECT_THAT(names, testing::IsSupersetOf(used)) << file;
    }
}
