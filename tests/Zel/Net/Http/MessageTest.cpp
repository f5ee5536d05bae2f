#include "../../IO/TestStreams.h"
#include "SampleMessages.h"

#include <Zel/ArgumentException.h>
#include <Zel/GenericException.h>
#include <Zel/IO/NullStream.h>
#include <Zel/IO/StreamUtils.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Json/Json.h>
#include <Zel/Json/ParserException.h>
#include <Zel/Net/Http/HttpException.h>
#include <Zel/Net/Http/Method.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Response.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Zel::Net::Http {
namespace {

// PieceStream does not tell its length, as a pipe or socket would not.
using IO::Testing::PieceStream;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

TEST(Message, DefaultsOfRequestAndResponse) {
    const Request request;
    EXPECT_EQ(request.method(), "GET");
    EXPECT_EQ(request.requestUri(), "");
    EXPECT_TRUE(request.url().empty());
    EXPECT_EQ(request.version(), Version(1, 1));
    EXPECT_EQ(request.headers().size(), 1u);
    EXPECT_EQ(request.headers().get("Content-Length"), "0");
    ASSERT_NE(request.body(), nullptr);
    EXPECT_NE(dynamic_cast<IO::NullStream*>(request.body().get()), nullptr);
    EXPECT_FALSE(request.hasBody());

    const Response response;
    EXPECT_EQ(response.statusCode(), 200);
    EXPECT_EQ(response.reasonPhrase(), "OK");
    EXPECT_EQ(response.version(), Version(1, 1));
    EXPECT_EQ(response.headers().toString(), "Content-Length: 0\r\n");
    EXPECT_FALSE(response.hasBody());
    EXPECT_EQ(Response(404).reasonPhrase(), "Not Found");
}

TEST(Message, OnlyPostPutAndPatchInCapitalsCarryABody) {
    const std::vector<std::pair<std::string, bool>> rows = {
        {"POST", true},    {"PUT", true},   {"PATCH", true},    {"GET", false},
        {"DELETE", false}, {"HEAD", false}, {"OPTIONS", false}, {"CONNECT", false},
        {"post", false},   {"Put", false},  {"", false}};
    for (const auto& [method, body] : rows) {
        SCOPED_TRACE(method);
        EXPECT_EQ(Method::hasRequestBody(method), body);
    }
}

TEST(Message, SetBodyTakesTheLengthOnlyFromStreamsThatKnowIt) {
    Request request(Method::POST, "/upload");
    request.setBody(std::make_shared<IO::StringStream>(std::string("0123456789")));
    EXPECT_EQ(request.headers().contentLength(), 10);
    EXPECT_TRUE(request.hasBody());

    Request unknown(Method::POST, "/upload");
    unknown.setBody(PieceStream::whole("0123456789"));
    // The 0 left by the constructor stays: framing is the caller's to set for such a stream.
    EXPECT_EQ(unknown.headers().get("Content-Length"), "0");

    unknown.setBody(nullptr);
    ASSERT_NE(unknown.body(), nullptr);
    EXPECT_FALSE(unknown.hasBody());
}

TEST(Message, SetBodyJsonSetsLengthAndTypeAndClearBodyResetsThem) {
    Response response;
    response.setBodyJson(Samples::apiJson);
    EXPECT_EQ(response.headers().contentLength(), static_cast<std::int64_t>(Samples::apiJson.size()));
    EXPECT_EQ(response.headers().contentType(), "application/json");
    const Variant value = response.bodyJson();
    EXPECT_EQ(static_cast<std::string>(value["status"]), "shipped");
    response.clearBody();
    EXPECT_FALSE(response.hasBody());
    EXPECT_EQ(response.headers().get("Content-Length"), "0");
    EXPECT_FALSE(response.headers().isSet("Content-Type"));

    Response fromObject;
    Headers object;
    object.set("a", "b");
    fromObject.setBody(object);
    EXPECT_EQ(IO::readAll(*fromObject.body()), R"({"a":"b"})");
    EXPECT_EQ(fromObject.headers().contentLength(), 9);
}

TEST(Message, BodyJsonWithoutABodyNamesTheRequestForBoth) {
    const auto noBody = ThrowsMessage<HttpException>(StrEq("Request has no body"));
    EXPECT_THAT([] { Request().bodyJson(); }, noBody);
    EXPECT_THAT([] { Response().bodyJson(); }, noBody);
}

TEST(Message, BodyJsonOfAStreamReadsItToTheEnd) {
    Request request(Method::PUT, "/orders/7");
    request.setBody(PieceStream::whole(Samples::orderJson));
    const Variant order = request.bodyJson();
    EXPECT_EQ(static_cast<std::string>(order["note"]), "leave at door");
    char byte;
    EXPECT_EQ(request.body()->read(&byte, 1), 0u);

    Request broken(Method::POST, "/");
    broken.setBody(PieceStream::whole("{\"a\":"));
    EXPECT_THROW(broken.bodyJson(), Json::ParserException);
}

TEST(Message, KeepAliveRules) {
    struct Row {
        Version version;
        const char* connection; // null: no header
        bool keepAlive;
    };
    const std::vector<Row> rows = {
        {{1, 1}, nullptr, true},       {{1, 1}, "keep-alive", true},  {{1, 1}, "close", false},
        {{1, 1}, "Keep-Alive", false}, {{1, 1}, "Upgrade", false},    {{1, 0}, nullptr, false},
        {{1, 0}, "keep-alive", true},  {{1, 0}, "Keep-Alive", false}, {{2, 0}, nullptr, false},
        {{2, 0}, "keep-alive", true},  {{0, 9}, nullptr, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.version.toString() + " " + (row.connection ? row.connection : "(none)"));
        Request request;
        request.setVersion(row.version);
        if (row.connection) request.headers().set("Connection", row.connection);
        EXPECT_EQ(request.keepAlive(), row.keepAlive);
    }
}

TEST(Message, ContinueExpectedIsAnExactMatch) {
    const std::vector<std::pair<std::string, bool>> rows = {
        {"100-continue", true}, {"100-Continue", false}, {"100-continue ", false}, {"", false}};
    for (const auto& [value, expected] : rows) {
        SCOPED_TRACE(value);
        Request request;
        request.headers().set("Expect", value);
        EXPECT_EQ(request.continueExpected(), expected);
    }
    EXPECT_FALSE(Request().continueExpected());
}

TEST(Message, StatusCodeAndReasonPhrase) {
    Response response;
    response.setStatusCode(404);
    EXPECT_EQ(response.reasonPhrase(), "Not Found");
    response.setStatusCode(500, false);
    EXPECT_EQ(response.reasonPhrase(), "Not Found");
    response.setStatusCode(299, true);
    EXPECT_EQ(response.reasonPhrase(), "");
}

TEST(Message, SettingTheTargetAsTextKeepsAnEarlierUrl) {
    Request request(Method::GET, "/first?a=1");
    EXPECT_EQ(request.url().path(), "/first");
    request.setRequestUri(std::string("/second"));
    EXPECT_EQ(request.requestUri(), "/second");
    EXPECT_EQ(request.url().path(), "/first");

    request.setRequestUri(Url("https://example.com/third?b=2"));
    EXPECT_EQ(request.requestUri(), "https://example.com/third?b=2");
    EXPECT_EQ(request.url().host(), "example.com");
    Url moved("/fourth");
    request.setRequestUri(std::move(moved));
    EXPECT_EQ(request.requestUri(), "/fourth");
    EXPECT_EQ(request.url().path(), "/fourth");

    Request bad(Method::CONNECT, "example.com:99999");
    EXPECT_THROW(bad.url(), ArgumentException);
}

TEST(Message, CopiesShareTheBodyStream) {
    Request original(Method::POST, "/");
    original.setBodyJson("[1,2,3]");
    const Request copy = original;
    EXPECT_EQ(copy.body(), original.body());
    char buffer[3];
    ASSERT_EQ(copy.body()->read(buffer, 3), 3u);
    EXPECT_EQ(original.body()->getPosition(), 3);
    Request moved = std::move(original);
    EXPECT_EQ(moved.body(), copy.body());
}

TEST(Message, RequestJsonFormRoundTrips) {
    Request request(Method::PATCH, "/api/items/5?x=%20");
    request.setVersion(Version(1, 0));
    request.headers().set("Host", "api.example.com");
    const std::string json = request.toJson();
    EXPECT_TRUE(json.starts_with(
        R"({"method":"PATCH","requestUri":"/api/items/5?x=%20","version":"1.0","headers":{)"))
        << json;
    const Variant dto = Json::parse(json);
    EXPECT_EQ(static_cast<std::string>(dto["version"]), "1.0");
    EXPECT_FALSE(dto.contains("protocol"));

    Request back;
    back.fromDto(dto);
    EXPECT_EQ(back.method(), "PATCH");
    EXPECT_EQ(back.requestUri(), "/api/items/5?x=%20");
    EXPECT_EQ(back.version(), Version(1, 0));
    EXPECT_EQ(back.headers(), request.headers());
    EXPECT_EQ(back.toJson(), json);
}

TEST(Message, ResponseJsonFormCallsTheVersionProtocol) {
    Response response(201);
    response.headers().set("Location", "/api/items/6");
    const Variant dto = Json::parse(response.toJson());
    EXPECT_EQ(static_cast<std::string>(dto["protocol"]), "1.1");
    EXPECT_EQ(static_cast<int>(dto["statusCode"]), 201);
    EXPECT_EQ(static_cast<std::string>(dto["reasonPhrase"]), "Created");
    EXPECT_FALSE(dto.contains("version"));

    Response back;
    back.fromDto(dto);
    EXPECT_EQ(back.statusCode(), 201);
    EXPECT_EQ(back.reasonPhrase(), "Created");
    EXPECT_EQ(back.toJson(), response.toJson());
}

TEST(Message, FromDtoFillsOptionalKeysAndRefusesMissingRequiredOnes) {
    Response response;
    response.fromDto(Json::parse(R"({"statusCode":503})"));
    EXPECT_EQ(response.reasonPhrase(), "Service Unavailable");
    EXPECT_EQ(response.version(), Version(1, 1));
    EXPECT_EQ(response.headers().get("Content-Length"), "0");

    response.fromDto(Json::parse(R"({"statusCode":299,"protocol":"1.0","reasonPhrase":"Odd"})"));
    EXPECT_EQ(response.reasonPhrase(), "Odd");
    EXPECT_EQ(response.version(), Version(1, 0));

    Request request(Method::DELETE, "/keep");
    EXPECT_THAT([&] { request.fromDto(Json::parse(R"({"requestUri":"/x"})")); },
                ThrowsMessage<GenericException>(StrEq("Variant: key not set | key=method")));
    EXPECT_EQ(request.requestUri(), "/keep");
    EXPECT_THROW(response.fromDto(Json::parse(R"({"reasonPhrase":"x"})")), GenericException);
    EXPECT_EQ(response.statusCode(), 299);
    EXPECT_THROW(request.fromDto(Json::parse(R"({"method":"GET","requestUri":"/","headers":7})")),
                 GenericException);
    EXPECT_EQ(request.method(), "DELETE");
}

} // namespace
} // namespace Zel::Net::Http
