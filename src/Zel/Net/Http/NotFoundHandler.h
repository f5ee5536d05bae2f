#pragma once

#include <Zel/Net/Http/IRequestHandler.h>

namespace Zel::Net::Http {

// Answers every request with 404 "Not Found" and a short plain-text body.
class ZEL_API NotFoundHandler : public IRequestHandler {
public:
    ~NotFoundHandler() override;
    void handle(Request& request, Response& response) override;
};

} // namespace Zel::Net::Http
