#pragma once

#include <Zel/IO/IStream.h>
#include <Zel/Json/IJsonable.h>
#include <Zel/Net/Http/Headers.h>
#include <Zel/Variant.h>
#include <Zel/Version.h>

#include <memory>
#include <string>

namespace Zel::Net::Http {

class Reader;

// What requests and responses share: the protocol version, the headers and the body.
//
// A body is a stream, never a string: the reader hands out streams that read the body lazily from
// the connection, so a body is read once, and reading it moves the stream on. A message without a
// body holds an IO::NullStream. Copies share the body stream.
//
// Thread safety: none; a message is used by one thread at a time.
class ZEL_API Message : public Json::IJsonable {
public:
    ~Message() override;

    // Only the first two components appear on the wire, as "HTTP/major.minor".
    const Version& version() const noexcept { return m_version; }
    void setVersion(const Version& version) noexcept { m_version = version; }

    Headers& headers() noexcept { return m_headers; }
    const Headers& headers() const noexcept { return m_headers; }
    void setHeaders(const Headers& headers) { m_headers = headers; }
    void setHeaders(Headers&& headers) noexcept { m_headers = std::move(headers); }

    const std::shared_ptr<IO::IStream>& body() const noexcept { return m_body; }
    // Whether the body is anything but a NullStream.
    bool hasBody() const noexcept { return m_hasBody; }
    // Attaches the stream (null counts as a NullStream). A stream of known length also sets
    // "Content-Length"; for any other the caller sets the framing headers, and a "Content-Length"
    // of 0 left from before stays.
    void setBody(std::shared_ptr<IO::IStream> body);
    // The body becomes the text, "Content-Length" its size and "Content-Type" "application/json".
    void setBodyJson(std::string json);
    // setBodyJson of the object's JSON.
    void setBody(const Json::IJsonable& object);
    // Reads the whole body and parses it as JSON. The body is consumed either way, so that one
    // that is not JSON (which fails with the JSON parser's error) does not stay in the connection.
    // Without a body HttpException "Request has no body", for responses too.
    Variant bodyJson() const;
    // An empty (NullStream) body, "Content-Length" 0, no "Content-Type".
    void clearBody();

    // Whether the connection may carry another message after this one: with a minor version other
    // than 0 unless "Connection" is other than "keep-alive", with minor version 0 only when it is
    // "keep-alive". Compared exactly; the major version is not looked at.
    bool keepAlive() const;

    // Writes the message with Writer.
    virtual void toStream(IO::IStream& stream) const = 0;
    // Reads the message with a default Reader.
    virtual void fromStream(std::shared_ptr<IO::IStream> stream) = 0;

protected:
    // The state clear() gives, reached directly: messages are made by the thousand.
    Message();
    Message(const Message&) = default;
    Message(Message&&) noexcept = default;
    Message& operator=(const Message&) = default;
    Message& operator=(Message&&) noexcept = default;

    // Version 1.1, no headers, then clearBody.
    void clear();

private:
    friend class Reader;

    // The body of messages without one. A NullStream has no state, so one serves every message,
    // and a message costs no allocation for its empty body.
    static const std::shared_ptr<IO::IStream>& nullBody();
    // setBody for a stream whose kind the caller knows.
    void attachBody(std::shared_ptr<IO::IStream> body, bool isBody);

    Version m_version{1, 1};
    Headers m_headers;
    std::shared_ptr<IO::IStream> m_body;
    bool m_hasBody = false; // m_body is not a NullStream; kept so that asking costs no type check
};

} // namespace Zel::Net::Http
