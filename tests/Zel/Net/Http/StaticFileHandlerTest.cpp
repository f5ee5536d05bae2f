#include "LoopbackClient.h"

#include <Zel/Net/Http/Server.h>
#include <Zel/Net/Http/StaticFileHandler.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

using namespace Zel::Net::Http;
using Zel::Net::Http::Testing::LoopbackClient;
using Zel::Net::Http::Testing::RawResponse;
namespace fs = std::filesystem;

namespace {

void writeFile(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

class StaticFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_folder = fs::temp_directory_path() / ("zel-static-" + std::to_string(::getpid()));
        fs::remove_all(m_folder);
        fs::create_directories(m_folder / "www" / "sub");
        fs::create_directories(m_folder / "outside");
        writeFile(m_folder / "www" / "index.html", "<h1>home</h1>");
        writeFile(m_folder / "www" / "data.json", "0123456789");
        writeFile(m_folder / "www" / "sub" / "a.css", "body{}");
        writeFile(m_folder / "secret.txt", "SECRET");
        writeFile(m_folder / "outside" / "secret.txt", "SECRET");
        fs::create_directory_symlink(m_folder / "outside", m_folder / "www" / "link");
        fs::create_symlink(m_folder / "secret.txt", m_folder / "www" / "linked.txt");
        fs::create_symlink(m_folder / "www" / "data.json", m_folder / "www" / "alias.json");
        m_server = std::make_unique<Server>(std::make_shared<StaticFileHandler>(m_folder / "www"),
                                            Server::Options{});
        m_server->start();
    }
    void TearDown() override {
        m_server.reset();
        fs::remove_all(m_folder);
    }

    RawResponse get(const std::string& target, const std::string& headers = {}, const char* method = "GET") {
        LoopbackClient client(m_server->port());
        client.send(std::string(method) + " " + target + " HTTP/1.1\r\n" + headers + "\r\n");
        return client.readResponse(std::string(method) == "HEAD");
    }

    fs::path m_folder;
    std::unique_ptr<Server> m_server;
};

TEST_F(StaticFileTest, NothingOutsideTheRootIsReachable) {
    for (const char* target :
         {"/../secret.txt", "/%2e%2e/secret.txt", "/%2E%2E/secret.txt", "/.%2e/secret.txt",
          "/%2e./secret.txt", "/%2e%2e%2fsecret.txt", "/sub/..%2f..%2fsecret.txt", "/sub/../../secret.txt",
          "/..%5csecret.txt", "/%252e%252e/secret.txt", "/link/secret.txt", "/linked.txt", "/sub/%00",
          "/%2e%2e", "/..", "/%c0%ae%c0%ae/secret.txt", "/sub/%2e%2e/%2e%2e/outside/secret.txt"}) {
        SCOPED_TRACE(target);
        const auto answer = get(target);
        EXPECT_EQ(answer.status, 404);
        EXPECT_EQ(answer.body.find("SECRET"), std::string::npos);
    }
}

TEST_F(StaticFileTest, ServesFilesWithTypesValidatorsAndRanges) {
    const auto index = get("/");
    EXPECT_EQ(index.status, 200);
    EXPECT_EQ(index.body, "<h1>home</h1>");
    EXPECT_NE(index.head.find("Content-Type: text/html; charset=utf-8"), std::string::npos);
    EXPECT_EQ(get("/sub/a.css?v=1").body, "body{}");
    EXPECT_EQ(get("/sub/./a.css").body, "body{}");
    EXPECT_EQ(get("/alias.json").body, "0123456789") << "a link that stays inside is followed";

    const auto full = get("/data.json");
    ASSERT_EQ(full.status, 200);
    const auto etagAt = full.head.find("ETag: ") + 6;
    const std::string etag = full.head.substr(etagAt, full.head.find("\r\n", etagAt) - etagAt);
    const auto modifiedAt = full.head.find("Last-Modified: ") + 15;
    const std::string modified =
        full.head.substr(modifiedAt, full.head.find("\r\n", modifiedAt) - modifiedAt);

    const struct {
        std::string headers;
        int status;
        const char* body;
        const char* contentRange;
    } cases[] = {
        {"If-None-Match: " + etag + "\r\n", 304, "", nullptr},
        {"If-None-Match: \"other\"\r\n", 200, "0123456789", nullptr},
        {"If-Modified-Since: " + modified + "\r\n", 304, "", nullptr},
        {"Range: bytes=2-5\r\n", 206, "2345", "bytes 2-5/10"},
        {"Range: bytes=7-\r\n", 206, "789", "bytes 7-9/10"},
        {"Range: bytes=-3\r\n", 206, "789", "bytes 7-9/10"},
        {"Range: bytes=8-100\r\n", 206, "89", "bytes 8-9/10"},
        {"Range: bytes=10-\r\n", 416, "", "bytes */10"},
        {"Range: bytes=0-1,4-5\r\n", 200, "0123456789", nullptr},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.headers);
        const auto answer = get("/data.json", row.headers);
        EXPECT_EQ(answer.status, row.status);
        EXPECT_EQ(answer.body, row.body);
        if (row.contentRange)
            EXPECT_NE(answer.head.find(std::string("Content-Range: ") + row.contentRange), std::string::npos);
    }
    const auto head = get("/data.json", {}, "HEAD");
    EXPECT_EQ(head.status, 200);
    EXPECT_NE(head.head.find("Content-Length: 10"), std::string::npos);
    const auto post = get("/data.json", "Content-Length: 0\r\n", "POST");
    EXPECT_EQ(post.status, 405);
    EXPECT_NE(post.head.find("Allow: GET, HEAD"), std::string::npos);
}

} // namespace
