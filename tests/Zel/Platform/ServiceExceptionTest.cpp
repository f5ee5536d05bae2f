#include <Zel/Json/Json.h>
#include <Zel/Platform/ServiceException.h>
#include <gtest/gtest.h>

using Zel::Variant;
using Zel::Platform::Operation;
using Zel::Platform::ServiceException;

TEST(ServiceExceptionTest, ToJsonKeepsKeyOrderAndSendsNoParams) {
    Variant data = Variant::makeMap();
    data.setAt("field", "name");
    const ServiceException error("badRequest", "Name \"x\" is taken", data,
                                 Operation{"Users", "add", R"({"secret":1})"});
    EXPECT_EQ(error.toJson(), R"({"result":1359,"errMsg":"Name \"x\" is taken","errRef":"badRequest",)"
                              R"("data":{"field":"name"},"service":"Users","operation":"add"})");
}

TEST(ServiceExceptionTest, FromReplyFillsDefaults) {
    const struct {
        const char* reply;
        const char* message;
        const char* errorRef;
        const char* data;
        const char* service;
        const char* operation;
    } cases[] = {
        {R"({"result":1359,"errMsg":"boom"})", "boom", "internalServerError", "null", "", ""},
        {R"({"result":1359,"errMsg":"x","errRef":"e","data":[1],"service":"S","operation":"o"})", "x", "e",
         "[1]", "S", "o"},
        {R"({"result":1359})", "", "internalServerError", "null", "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.reply);
        const ServiceException error(Zel::Json::parse(c.reply));
        EXPECT_EQ(error.message(), c.message);
        EXPECT_EQ(error.errorRef(), c.errorRef);
        EXPECT_EQ(error.data().toJson(), c.data);
        EXPECT_EQ(error.operation().service, c.service);
        EXPECT_EQ(error.operation().operation, c.operation);
    }
}

TEST(ServiceExceptionTest, RoundTripsThroughItsJson) {
    const ServiceException original("e", "m", Variant(3), Operation{"S", "o", {}});
    const ServiceException copy(Zel::Json::parse(original.toJson()));
    EXPECT_EQ(copy.toJson(), original.toJson());
}
