// The program as it serves metrics.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tool/child_program.h"
#include "tool/data_image.h"
#include "tool/exporter.h"
#include "tool/tool_fixture.h"

using namespace tool_test;
using testing::HasSubstr;
using testing::StartsWith;

TEST(Serve, AnswersAsTheTextfileSays)
{
    const temp_dir dir;
    const std::string data = dir.write("<d>.dat", image_builder().counter("search", 7, 1, 4, 5).bytes());
    exporter serving(dir, {data});
    ASSERT_GT(serving.port(), 0);
    const auto ask = [&](const std::string& request, const std::string& headers = "") {
        return http(serving.port(), request, headers);
    };

    const http_answer old = ask("GET /metrics");
    EXPECT_THAT(old.head, StartsWith("HTTP/1.1 200 "));
    EXPECT_THAT(old.head, HasSubstr("\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n"));
    EXPECT_EQ(old.body, run({"export", "--prometheus", "-", data}).out);
    const http_answer open =
        ask("GET /metrics?x=1", "Accept: application/openmetrics-text; version=1.0.0\r\n");
    EXPECT_THAT(open.head, HasSubstr("Content-Type: application/openmetrics-text; version=1.0.0;"));
    EXPECT_TRUE(open.body.ends_with("\n# EOF\n"));
    EXPECT_EQ(ask("HEAD /metrics").body, "");
    EXPECT_THAT(ask("HEAD /metrics").head, HasSubstr("Content-Length: " + std::to_string(old.body.size())));
    EXPECT_THAT(ask("GET /").body, HasSubstr("/&lt;d&gt;.dat</code>"));
    EXPECT_THAT(ask("GET /nothing").head, HasSubstr(" 404 "));
    EXPECT_THAT(ask("POST /metrics", "Content-Length: 3\r\n").head, HasSubstr("\r\nAllow: GET, HEAD"));
    EXPECT_EQ(ask("GET /healthz").body, "ok\n");

    std::filesystem::remove(data); // the host's directory was cleaned
    EXPECT_THAT(ask("GET /healthz").head, HasSubstr(" 503 "));
    EXPECT_THAT(ask("GET /metrics").body, HasSubstr("<d>.dat\"} 0\n"));
    serving.program().send(SIGTERM);
    EXPECT_EQ(serving.program().exit_status(), 0);
}

TEST(Serve, FinishesWhatIsUnderWay)
{
    const temp_dir dir;
    image_builder image;
    for (uint64_t entry = 0; entry < 4'096; ++entry) {
        image.counter("operation", entry, 1, 4, 5); // more than sockets buffer
    }
    exporter serving(dir, {dir.write("d.dat", image.bytes())});
    ASSERT_GT(serving.port(), 0);
    const size_t whole = http(serving.port(), "GET /metrics").body.size();
    const local_connection slow(serving.port());
    slow.send("GET /metrics HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // the answer has begun
    serving.program().send(SIGINT);
    EXPECT_TRUE(comes_true([&] { return !local_connection(serving.port()).is_open(); }));
    const std::string answer = slow.rest();
    EXPECT_EQ(answer.size() - answer.find("\r\n\r\n") - 4, whole) << "it is not cut";
    EXPECT_EQ(serving.program().exit_status(), 0);
}

TEST(Serve, RefusesAddressesThatItCannotHave)
{
    for (const char* address : {"", "80", ":80", "127.0.0.1", "127.0.0.1:", "127.0.0.1:x", "localhost:80",
                                "::1:80", "127.0.0.1:99999", "[127.0.0.1]:80"}) {
        EXPECT_EQ(run({"serve", "--listen", address}).status, 2) << address;
    }
    const temp_dir dir;
    const exporter first(dir, {});
    const tool_run second = run({"serve", "--listen", "127.0.0.1:" + std::to_string(first.port())});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.err, HasSubstr(": Address already in use\n"));
}
