#include <Zel/ArgumentException.h>
#include <Zel/IO/StreamUtils.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Response.h>
#include <Zel/Net/Http/Router.h>
#include <gtest/gtest.h>

using namespace Zel::Net::Http;

namespace {

std::string bodyOf(const Response& response) {
    return Zel::IO::readAll(*response.body());
}

Response call(Router& router, const std::string& method, const std::string& target,
              std::initializer_list<std::pair<const char*, const char*>> headers = {}) {
    Request request(method, target);
    for (const auto& [name, value] : headers)
        request.headers().set(name, value);
    Response response;
    router.handle(request, response);
    return response;
}

Router::Handler answer(std::string prefix) {
    return [prefix](Request&, Response& response, const Router::Params& params) {
        std::string text = prefix;
        for (const char* name : {"id", "name"})
            if (!params.get(name).empty())
                text += std::string(" ") + name + "=" + std::string(params.get(name));
        response.setBody(std::make_shared<Zel::IO::StringStream>(text));
    };
}

TEST(Router, RoutesByMethodAndTypedPath) {
    Router router;
    router.get("/notes", answer("list"))
        .post("/notes", answer("create"))
        .get("/notes/{id:int}", answer("one"))
        .remove("/notes/{id:int}", answer("delete"))
        .get("/users/{name}/notes/{id:int}", answer("user"))
        .get("/", answer("root"));
    const struct {
        const char* method;
        const char* target;
        int status;
        const char* body;
        const char* allow;
    } cases[] = {
        {"GET", "/notes", 200, "list", ""},
        {"GET", "/notes?page=2", 200, "list", ""},
        {"POST", "/notes", 200, "create", ""},
        {"GET", "/notes/42", 200, "one id=42", ""},
        {"GET", "/notes/-7", 200, "one id=-7", ""},
        {"HEAD", "/notes/42", 200, "one id=42", ""},
        {"DELETE", "/notes/42", 200, "delete id=42", ""},
        {"GET", "/users/ada%20l/notes/1", 200, "user id=1 name=ada l", ""},
        {"GET", "/", 200, "root", ""},
        {"GET", "/notes/abc", 404, "Not Found\n", ""},
        {"GET", "/notes/99999999999999999999", 404, "Not Found\n", ""},
        {"GET", "/notes/42/extra", 404, "Not Found\n", ""},
        {"GET", "/notes/", 404, "Not Found\n", ""},
        {"GET", "/users//notes/1", 404, "Not Found\n", ""},
        {"PUT", "/notes/42", 405, "", "DELETE, GET, HEAD"},
        {"DELETE", "/notes", 405, "", "GET, HEAD, POST"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(std::string(row.method) + " " + row.target);
        const Response response = call(router, row.method, row.target);
        EXPECT_EQ(response.statusCode(), row.status);
        EXPECT_EQ(bodyOf(response), row.body);
        EXPECT_EQ(response.headers().get("Allow"), row.allow);
    }
}

TEST(Router, RefusesMalformedPatterns) {
    Router router;
    for (const char* pattern : {"notes", "", "/{}", "/{id:float}", "/{id", "/{:int}"}) {
        SCOPED_TRACE(pattern);
        EXPECT_THROW(router.get(pattern, answer("x")), Zel::ArgumentException);
    }
}

TEST(Router, MiddlewareRunsInOrderAndMayAnswerAlone) {
    Router router;
    std::string trace;
    router.use([&](Request&, Response&, const Router::Next& next) {
        trace += "a";
        next();
        trace += "A";
    });
    router.use(Router::cors("https://app.example"));
    router.use(Router::bearerAuth("s3cret"));
    router.get("/private", answer("secret"));

    EXPECT_EQ(call(router, "GET", "/private", {{"Authorization", "Bearer s3cret"}}).statusCode(), 200);
    EXPECT_EQ(trace, "aA");
    for (const char* authorization :
         {"", "Bearer s3cre", "Bearer s3cret2", "bearer s3cret", "Basic s3cret"}) {
        SCOPED_TRACE(authorization);
        const Response refused = call(router, "GET", "/private", {{"Authorization", authorization}});
        EXPECT_EQ(refused.statusCode(), 401);
        EXPECT_EQ(refused.headers().get("WWW-Authenticate"), "Bearer");
        EXPECT_EQ(bodyOf(refused), "");
    }

    const Response preflight =
        call(router, "OPTIONS", "/private",
             {{"Origin", "https://app.example"}, {"Access-Control-Request-Method", "GET"}});
    EXPECT_EQ(preflight.statusCode(), 204);
    EXPECT_EQ(preflight.headers().get("Access-Control-Allow-Origin"), "https://app.example");
    EXPECT_EQ(preflight.headers().get("Access-Control-Allow-Headers"), "Authorization, Content-Type");
    const Response cross = call(router, "GET", "/private",
                                {{"Origin", "https://app.example"}, {"Authorization", "Bearer s3cret"}});
    EXPECT_EQ(bodyOf(cross), "secret");
    EXPECT_EQ(cross.headers().get("Access-Control-Allow-Origin"), "https://app.example");
}

} // namespace
