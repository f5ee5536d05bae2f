#pragma once

#include <Zel/Net/Http/Message.h>

#include <cstdint>
#include <string>

namespace Zel::Net::Http {

// An HTTP response: status code, reason phrase and the parts of Message.
class ZEL_API Response : public Message {
public:
    // 200 "OK", version 1.1, "Content-Length: 0", no body.
    Response();
    // The code with the status table's text.
    explicit Response(std::int32_t statusCode);
    Response(const Response&) = default;
    Response(Response&&) noexcept = default;
    Response& operator=(const Response&) = default;
    Response& operator=(Response&&) noexcept = default;
    ~Response() override;

    std::int32_t statusCode() const noexcept { return m_statusCode; }
    // With `setReasonPhrase`, the reason phrase becomes the status table's text for the code (the
    // empty string for a code the table lacks).
    void setStatusCode(std::int32_t statusCode, bool setReasonPhrase = true);
    const std::string& reasonPhrase() const noexcept { return m_reasonPhrase; }
    void setReasonPhrase(std::string reasonPhrase) { m_reasonPhrase = std::move(reasonPhrase); }

    // {"protocol":"1.1","statusCode":200,"reasonPhrase":"OK","headers":{...}}
    std::string toJson() const override;
    // Fills the response from a Variant map with the keys of toJson. "statusCode" is required (a
    // missing one throws the Variant's "key not set" error); without "reasonPhrase" the status
    // table's text is taken; a missing "protocol" or "headers" keeps the default. The body is
    // cleared.
    void fromDto(const Variant& dto);

    void toStream(IO::IStream& stream) const override;
    void fromStream(std::shared_ptr<IO::IStream> stream) override;

protected:
    // Message::clear, then 200 "OK".
    void clear();

private:
    friend class Reader;

    std::int32_t m_statusCode = 200;
    std::string m_reasonPhrase;
};

} // namespace Zel::Net::Http
