#include "HttpFront.h"

#include "LoopbackClient.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <mutex>

using Zel::Net::Http::Testing::LoopbackClient;
using ZelHost::HttpFront;

namespace {

TEST(HttpFront, MapsReplyEnvelopesToStatuses) {
    const struct {
        const char* reply;
        int status;
    } cases[] = {
        {R"({"result":0,"data":5})", 200},
        {R"({"result":2})", 200},
        {R"({"result":1359,"errMsg":"Unknown operation | notes.nope","errRef":"notes"})", 404},
        {R"({"result":1359,"errMsg":"Unknown service: x"})", 404},
        {R"({"result":1359,"errMsg":"no","errRef":"serviceNotStarted"})", 503},
        {R"({"result":1359,"errMsg":"no","errRef":"invalidParams"})", 400},
        {R"({"result":1359,"errMsg":"boom"})", 500},
        {R"(not json)", 502},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.reply);
        EXPECT_EQ(HttpFront::statusFor(row.reply), row.status);
    }
}

TEST(HttpFront, ServesCallsHealthAndStaticFilesBehindTheToken) {
    const auto folder = std::filesystem::temp_directory_path() / ("zel-front-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "index.html") << "front";

    std::mutex mutex;
    std::vector<std::string> calls;
    HttpFront::Options options;
    options.port = 0;
    options.staticFolder = folder;
    options.bearerToken = "t0k";
    HttpFront front(
        [&](const std::string& service, const std::string& operation, const std::string& params) {
            const std::lock_guard lock(mutex);
            calls.push_back(service + "." + operation + " " + params);
            if (operation == "fail")
                return std::string(
                    R"({"result":1359,"errMsg":"Unknown operation | notes.fail","errRef":"notes"})");
            return std::string(R"({"result":0,"data":{"id":1}})");
        },
        options);
    front.start();

    const auto exchange = [&](const std::string& wire) {
        LoopbackClient client(front.port());
        client.send(wire);
        return client.readResponse();
    };
    const std::string auth = "Authorization: Bearer t0k\r\n";
    const std::string params = R"({"title":"a"})";
    const struct {
        std::string wire;
        int status;
        const char* body;
    } cases[] = {
        {"POST /services/notes/add HTTP/1.1\r\n" + auth + "Content-Length: " + std::to_string(params.size()) +
             "\r\n\r\n" + params,
         200, R"({"result":0,"data":{"id":1}})"},
        {"POST /services/notes/list HTTP/1.1\r\n" + auth + "Content-Length: 0\r\n\r\n", 200,
         R"({"result":0,"data":{"id":1}})"},
        {"POST /services/notes/fail HTTP/1.1\r\n" + auth + "Content-Length: 2\r\n\r\n{}", 404, nullptr},
        {"POST /services/notes/add HTTP/1.1\r\n" + auth + "Content-Length: 3\r\n\r\n{x}", 400, nullptr},
        {"POST /services/notes/add HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}", 401, ""},
        {"GET /services/notes/add HTTP/1.1\r\n" + auth + "\r\n", 405, ""},
        {"GET /health HTTP/1.1\r\n\r\n", 200, R"({"status":"ok"})"},
        {"GET / HTTP/1.1\r\n" + auth + "\r\n", 200, "front"},
        {"GET / HTTP/1.1\r\n\r\n", 401, ""},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.wire);
        const auto answer = exchange(row.wire);
        EXPECT_EQ(answer.status, row.status);
        if (row.body) EXPECT_EQ(answer.body, row.body);
    }
    front.stop();
    std::filesystem::remove_all(folder);
    const std::vector<std::string> expected{"notes.add {\"title\":\"a\"}", "notes.list {}", "notes.fail {}"};
    EXPECT_EQ(calls, expected);
}

} // namespace
