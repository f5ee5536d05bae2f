// Drives the real zel-host process over HTTP with the Notes plug-in, as a browser or a script would.

#include "HostProcess.h"

#include <Zel/Net/Http/Client.h>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using Zel::Net::Http::Client;
using Zel::Net::Http::ClientOptions;
using Zel::Net::Http::Headers;

constexpr const char* token = "s3cret-t0ken";
constexpr const char* listening = "zel-host: serving HTTP on 127.0.0.1:";

// The host says on standard error where it listens (read here through the output pipe it shares);
// the port the kernel chose, so that parallel test processes never race for one.
std::uint16_t portOf(HostProcess& host) {
    for (;;) {
        const std::string line = host.readLine();
        if (line.starts_with(listening))
            return static_cast<std::uint16_t>(std::stoi(line.substr(std::strlen(listening))));
    }
}

} // namespace

TEST(HostHttpTest, ServesTheNotesPluginBehindTheTokenAndKeepsWhatWasWrittenOverHttp) {
    const std::filesystem::path root =
        std::filesystem::path(::testing::TempDir()) / ("zel-host-http-" + std::to_string(getpid()));
    std::filesystem::remove_all(root);
    std::filesystem::create_directories(root / "www");
    std::ofstream(root / "www" / "index.html") << "<p>notes</p>";
    // Beside the static folder, where a ".." would lead.
    std::ofstream(root / "secret.txt") << "not for the web";
    const std::string data = (root / "data").string();
    const std::string module = ZEL_NOTES_MODULE_PATH;

    {
        HostProcess host({module, "--data", data, "--http", "127.0.0.1:0", "--set",
                          std::string("http.bearerToken=") + token, "--set",
                          "http.staticFolder=" + (root / "www").string()},
                         {}, "/dev/stdout");
        const std::uint16_t port = portOf(host);
        const std::string base = "http://127.0.0.1:" + std::to_string(port);
        Client client(ClientOptions().setReadTimeout(std::chrono::seconds(30)));

        enum class Auth { right, none, wrong };
        const struct {
            const char* method;
            std::string path;
            std::string body;
            Auth auth;
            int status;
            std::string reply;
        } cases[] = {
            {"POST", "/services/Notes/add", R"({"text":"written over HTTP","tags":["web"]})", Auth::right,
             200, R"({"data":{"id":1},"result":0})"},
            {"POST", "/services/Notes/get", R"({"id":1})", Auth::right, 200,
             R"({"data":{"id":1,"tags":["web"],"text":"written over HTTP"},"result":0})"},
            {"POST", "/services/Notes/get", R"({"id":9})", Auth::right, 404,
             R"({"result":1359,"errMsg":"No such note | id=9","errRef":"notFound","data":null,"service":"Notes","operation":"get"})"},
            {"POST", "/services/Notes/add", R"({"tags":[]})", Auth::right, 400,
             R"({"result":1359,"errMsg":"A note needs a text | param=text","errRef":"badRequest","data":null,"service":"Notes","operation":"add"})"},
            {"POST", "/services/Nope/get", "{}", Auth::right, 404,
             R"({"result":1359,"errMsg":"Unknown service: Nope","errRef":"unknownService","data":null,"service":"Nope","operation":"get"})"},
            {"POST", "/services/Notes/nope", "{}", Auth::right, 404,
             R"({"result":1359,"errMsg":"Unknown operation | Notes.nope","errRef":"Notes","data":null,"service":"Notes","operation":"nope"})"},
            {"POST", "/services/Notes/add", R"({"text":)", Auth::right, 400,
             R"({"result":1359,"errMsg":"Request body is not JSON | error=Unexpected end","errRef":"badRequest","data":null,"service":"Notes","operation":"add"})"},
            {"POST", "/services/Notes/add", R"({"text":"refused"})", Auth::none, 401, ""},
            {"POST", "/services/Notes/add", R"({"text":"refused"})", Auth::wrong, 401, ""},
            {"GET", "/health", "", Auth::none, 200, R"({"status":"ok"})"},
            {"GET", "/index.html", "", Auth::right, 200, "<p>notes</p>"},
            {"GET", "/index.html", "", Auth::none, 401, ""},
            {"GET", "/../secret.txt", "", Auth::right, 404, ""},
            {"GET", "/%2e%2e/secret.txt", "", Auth::right, 404, ""},
            // Only the first add went through: the refused ones never reached the plug-in.
            {"POST", "/services/Notes/list", "", Auth::right, 200,
             R"({"data":[{"id":1,"tags":["web"],"text":"written over HTTP"}],"result":0})"},
        };
        for (const auto& row : cases) {
            SCOPED_TRACE(std::string(row.method) + " " + row.path + " " + row.body);
            Headers headers;
            if (row.auth == Auth::right) headers.set("Authorization", std::string("Bearer ") + token);
            if (row.auth == Auth::wrong) headers.set("Authorization", std::string("Bearer ") + token + "x");
            if (!row.body.empty()) headers.set("Content-Type", "application/json");
            const auto answer = client.request(row.method, base + row.path, headers, row.body);
            EXPECT_EQ(answer.statusCode(), row.status);
            if (row.status != 404 || !row.reply.empty()) EXPECT_EQ(answer.body(), row.reply);
            EXPECT_EQ(answer.body().find("not for the web"), std::string::npos);
            EXPECT_EQ(answer.headers().get("WWW-Authenticate"), row.status == 401 ? "Bearer" : "");
            if (row.path.starts_with("/services/"))
                EXPECT_EQ(answer.headers().get("Content-Type"), row.status == 401 ? "" : "application/json");
        }

        host.signal(SIGTERM);
        std::vector<std::string> rest;
        EXPECT_EQ(host.finish(&rest), 0) << ::testing::PrintToString(rest);
    }

    // A second host on the same data directory finds the note the first one acknowledged over HTTP.
    HostProcess host({module, "--data", data});
    host.readLine();
    EXPECT_EQ(host.call("Notes.list"),
              R"({"data":[{"id":1,"tags":["web"],"text":"written over HTTP"}],"result":0})");
    EXPECT_EQ(host.finish(), 0);
    std::filesystem::remove_all(root);
}
