// What is kept elsewhere: Prometheus's own reading of rules and metrics, a real PostgreSQL that loads rows.
// scripts/install_packages stores brings both.
#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include "prometheus/data_file_metrics.h"
#include "support/run_command.h"
#include "support/texts.h"
#include "tool/data_image.h"
#include "tool/report_figures.h"
#include "tool/tool_fixture.h"

using namespace ostrum_tool;
using namespace tool_test;
using nlohmann::json;

#define SKIP_WITHOUT(program, is_there)                                                                      \
    if (!(is_there)) {                                                                                       \
        GTEST_SKIP() << program " is not installed: scripts/install_packages stores";                        \
    }

namespace {

bool has_program(const std::string& name)
{
    return run_command("command -v " + name).exit_status == 0;
}

// A cluster in the test's directory, which only a user that is not root may run.
class postgresql_cluster {
public:
    static std::string programs()
    {
        const command_run found = run_command("ls -d /usr/lib/postgresql/*/bin | tail -n 1");
        return found.output.starts_with("/") ? found.output.substr(0, found.output.find('\n')) : "";
    }
    explicit postgresql_cluster(const temp_dir& dir) : directory_(dir.path()), bin_(programs() + "/")
    {
        if (geteuid() == 0) {
            const passwd* const nobody = getpwnam("nobody");
            static_cast<void>(chown(dir.path().c_str(), nobody->pw_uid, nobody->pw_gid));
            as_user_ =
                "setpriv --reuid=nobody --regid=" + std::to_string(nobody->pw_gid) + " --clear-groups ";
        }
        const std::string options = "-o \"-c listen_addresses= -k " + directory_ +
                                    " -c fsync=off -c max_connections=5 -c shared_buffers=16MB\"";
        started_ =
            run_command("cd " + directory_ + " && " + as_user_ + bin_ + "initdb -D " + data() +
                        " -U ostrum -A trust --no-sync --locale=C --encoding=UTF8 && " + as_user_ + bin_ +
                        "pg_ctl -D " + data() + " -l " + directory_ + "/log -w " + options + " start");
    }
    ~postgresql_cluster()
    {
        run_command("cd " + directory_ + " && " + as_user_ + bin_ + "pg_ctl -D " + data() +
                    " -m immediate stop");
    }
    postgresql_cluster(const postgresql_cluster&) = delete;
    postgresql_cluster& operator=(const postgresql_cluster&) = delete;

    [[nodiscard]] const command_run& started() const { return started_; }
    [[nodiscard]] std::string psql() const
    {
        return bin_ + "psql -X -q -At -v ON_ERROR_STOP=1 -h " + directory_ + " -U ostrum -d postgres ";
    }
    [[nodiscard]] std::string ask(const std::string& question) const
    {
        return run_command(psql() + "-c \"" + question + "\"").output;
    }

private:
    [[nodiscard]] std::string data() const { return directory_ + "/cluster"; }

    std::string directory_, bin_, as_user_;
    command_run started_;
};

} // namespace

TEST(Prometheus, AcceptsRulesAndMetrics)
{
    SKIP_WITHOUT("Prometheus", has_program("promtool"));
    const std::string here = OSTRUM_TESTS "/tool/";
    EXPECT_EQ(run_command("promtool check config " OSTRUM_SHARE "/prometheus.yml").exit_status, 0);
    const command_run rules = run_command("promtool test rules " + here + "prometheus_rules_test.yml");
    EXPECT_EQ(rules.exit_status, 0) << rules.output;
    const temp_dir dir;
    const std::string data = dir.write("d.dat", full_sample().bytes());
    const command_run lint =
        run_command(OSTRUM_TOOL " export --prometheus - " + data + " | promtool check metrics");
    EXPECT_EQ(lint.output, "") << "names follow the conventions";
}

TEST(Prometheus, UnderstandsWhatTheDashboardAsks)
{
    SKIP_WITHOUT("Prometheus", has_program("promtool"));
    const json dashboard = json::parse(temp_dir::read(OSTRUM_SHARE "/grafana_dashboard.json"));
    json rules = json::array();
    for (const json& panel : dashboard.at("panels")) {
        for (const json& target : panel.at("targets")) {
            const std::string asked = target.at("expr");
            const std::string query = std::regex_replace(asked, std::regex("\\$__rate_interval"), "5m");
            rules.push_back({{"record", "asked:" + std::to_string(rules.size())}, {"expr", query}});
        }
    }
    const temp_dir dir;
    const json groups = {{"groups", {{{"name", "dashboard"}, {"rules", rules}}}}};
    const command_run check = run_command("promtool check rules " + dir.write("rules.yml", groups.dump()));
    EXPECT_TRUE(check.shows("SUCCESS: " + std::to_string(rules.size()) + " rules found")) << check.output;
}

// Its strictest reader, which takes only samples that have a time.
TEST(Prometheus, ReadsEverySampleOfTheOpenMetricsForm)
{
    SKIP_WITHOUT("Prometheus", has_program("promtool"));
    const temp_dir dir;
    const std::string data = dir.write("d.dat", full_sample().bytes());
    const std::string text =
        exposition_of(read_exported_files({data}), {}, exposition_format::openmetrics_1_0);
    const std::string timed = std::regex_replace(text, std::regex("\n([^#\n].*)"), "\n$1 1700000000");
    const command_run stored = run_command("mkdir -p " + dir.file("store/wal") +
                                           " && promtool tsdb create-blocks-from openmetrics " +
                                           dir.write("timed", timed) + " " + dir.file("store"));
    ASSERT_EQ(stored.exit_status, 0) << stored.output;
    const std::string samples = run_command("promtool tsdb dump " + dir.file("store")).output;
    EXPECT_EQ(count_of(samples, "\n"), count_of(timed, " 1700000000\n"));
    EXPECT_TRUE(samples.find("} 2.000000002 1700000000000\n") != std::string::npos) << samples;
}

TEST(PostgreSql, AnswersAsTheReportDoesHoweverOftenItLoads)
{
    SKIP_WITHOUT("PostgreSQL", !postgresql_cluster::programs().empty());
    const temp_dir dir;
    const postgresql_cluster cluster(dir);
    ASSERT_EQ(cluster.started().exit_status, 0) << cluster.started().output;
    ASSERT_EQ(run_command(cluster.psql() + "-f " OSTRUM_SCHEMA "/postgresql.sql").output, "");

    const temp_dir traces;
    const std::string calls =
        block(start(1, 7, "\\N") + start(2, 0, "s\tql\xFF\\") + end("0.300000000", 3) +
              start(2, 7, "\\N", "prog", 1) + end("0.100000000", 2, "0,0.010000000") + end("0.400000000", 2));
    const std::string first = traces.write("a.plog.txt", calls + calls);
    traces.write("b.plog.txt", block(start(1, 7, "\\N") + end("0.000000001", 1, "0,0", 0)));
    const auto load = [&] {
        return run_command(OSTRUM_TOOL " export --tsv --host h " + traces.path() + " | " + cluster.psql() +
                           "-c 'copy trace_rows_new from stdin' -c 'select trace_rows_take()'")
            .output;
    };
    EXPECT_EQ(load(), "10\n");
    EXPECT_EQ(load(), "0\n");
    EXPECT_EQ(cluster.ask(figures_question), report_figures(traces.path(), "\n"));
    traces.write("a.plog.txt", calls + calls + calls);
    EXPECT_EQ(load(), "4\n") << "what is new in a file that has grown";
    EXPECT_EQ(cluster.ask(figures_question), report_figures(traces.path(), "\n"));
    EXPECT_EQ(cluster.ask("select sum(calls) from trace_buckets"), "6\n");
    EXPECT_EQ(cluster.ask("select count(distinct (host, file)) from trace_rows"), "2\n");
}
