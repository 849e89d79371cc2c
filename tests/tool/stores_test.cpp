// What is kept elsewhere: a real Prometheus that scrapes the tool, a real PostgreSQL that loads its rows.
// scripts/install_packages stores brings both.
#include <cstdlib>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include "support/run_command.h"
#include "tool/data_image.h"
#include "tool/exporter.h"
#include "tool/report_figures.h"
#include "tool/tool_fixture.h"

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

int free_port()
{
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    socklen_t bytes = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
    getsockname(probe, reinterpret_cast<sockaddr*>(&address), &bytes);
    close(probe);
    return ntohs(address.sin_port);
}

class prometheus_server {
public:
    prometheus_server(const temp_dir& dir, int exporter_port)
        : port_(free_port()),
          program_({"prometheus", "--config.file", write_configuration(dir, exporter_port),
                    "--storage.tsdb.path", dir.file("tsdb"), "--log.level", "warn", "--web.listen-address",
                    "127.0.0.1:" + std::to_string(port_)},
                   dir.file("prometheus.log"))
    {}
    [[nodiscard]] json get(const std::string& path) const
    {
        const json answer = json::parse(http(port_, "GET /api/v1/" + path).body, nullptr, false);
        return answer.is_object() && answer.contains("data") ? answer.at("data") : json();
    }
    // The only series of that name and operation, as its text; "" when there is none.
    [[nodiscard]] std::string value(const std::string& metric, const json& row) const
    {
        const json data = get("query?query=" + metric + "%7Bname=%22" + row.at("name").get<std::string>() +
                              "%22,opcode=%22" + row.at("opcode").dump() + "%22%7D");
        const json result = data.is_object() ? data.at("result") : json::array();
        return result.size() == 1 ? result.at(0).at("value").at(1).get<std::string>() : "";
    }

private:
    static std::string write_configuration(const temp_dir& dir, int exporter_port)
    {
        return dir.write("prometheus.yml", "global: {scrape_interval: 200ms, scrape_timeout: 200ms}\n"
                                           "scrape_configs:\n"
                                           "- job_name: ostrum\n"
                                           "  static_configs: [{targets: [\"127.0.0.1:" +
                                               std::to_string(exporter_port) + "\"]}]\n");
    }

    int port_;
    child_program program_;
};

json counters_of(const std::string& data)
{
    return json::parse(run({"counters", "--json", data}).out).at("rows");
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
    image_builder image;
    image.counter("search", 7, 1, 4, 5).error(37, "search", 1).variable("a", "1").variable("b", "x");
    for (size_t word = 0; word < 26; ++word) {
        image.metric(word, word + 1);
    }
    const std::string data = dir.write("d.dat", image.bytes());
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

TEST(Prometheus, CountsWhatTheToolShows)
{
    SKIP_WITHOUT("Prometheus", has_program("prometheus"));
    const temp_dir dir;
    image_builder image;
    image.counter("search", 7, 1, 4, 2'500'000'000).counter("read", 3, 1, 1'000'000'007, 1);
    const std::string data = dir.write("d.dat", image.bytes());
    exporter serving(dir, {data});
    const prometheus_server prometheus(dir, serving.port());
    for (int round = 0; round < 2; ++round) {
        for (const json& row : counters_of(data)) {
            const std::string calls = row.at("calls").dump();
            EXPECT_TRUE(comes_true([&] {
                return prometheus.value("ostrum_operation_calls_total", row) == calls;
            })) << row
                << prometheus.value("ostrum_operation_calls_total", row)
                << temp_dir::read(dir.file("prometheus.log"));
            const std::string seconds = prometheus.value("ostrum_operation_duration_seconds_total", row);
            EXPECT_DOUBLE_EQ(std::strtod(seconds.c_str(), nullptr), row.at("total_ns").get<double>() / 1e9);
        }
        dir.write("d.dat", image.counter("late", 9, 1, 3, 4).word(368 + 608, 5).bytes()); // the host goes on
    }
    const json units = prometheus.get("metadata?metric=ostrum_operation_duration_seconds");
    EXPECT_TRUE(units.dump().find("\"unit\":\"seconds\"") != std::string::npos)
        << "it was not OpenMetrics: " << prometheus.get("metadata").dump();
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
