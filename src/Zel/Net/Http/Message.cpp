#include <Zel/IO/NullStream.h>
#include <Zel/IO/StreamUtils.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Json/Json.h>
#include <Zel/Net/Http/ContentLengthBodyStream.h>
#include <Zel/Net/Http/HttpException.h>
#include <Zel/Net/Http/Message.h>
#include <typeinfo>

namespace Zel::Net::Http {

Message::Message() : m_body(nullBody()) {
    m_headers.setContentLength(0);
}

Message::~Message() = default;

const std::shared_ptr<IO::IStream>& Message::nullBody() {
    // One for the whole process, never destroyed (a message may outlive static destruction) and
    // not reference-counted: the pointer shares no ownership, so copying it costs no atomic
    // operation and no thread contends for a counter.
    static IO::NullStream* const instance = new IO::NullStream;
    static const auto* const body = new std::shared_ptr<IO::IStream>(std::shared_ptr<void>(), instance);
    return *body;
}

void Message::attachBody(std::shared_ptr<IO::IStream> body, bool isBody) {
    if ((body->capabilities() & IO::IStream::LengthKnown) != 0) m_headers.setContentLength(body->getLength());
    m_body = std::move(body);
    m_hasBody = isBody;
}

void Message::setBody(std::shared_ptr<IO::IStream> body) {
    if (!body) body = nullBody();
    const bool isBody = dynamic_cast<const IO::NullStream*>(body.get()) == nullptr;
    attachBody(std::move(body), isBody);
}

void Message::setBodyJson(std::string json) {
    const auto length = static_cast<std::int64_t>(json.size());
    m_body = std::make_shared<IO::StringStream>(std::move(json));
    m_hasBody = true;
    m_headers.setContentLength(length);
    m_headers.set(Headers::CONTENT_TYPE, "application/json");
}

void Message::setBody(const Json::IJsonable& object) {
    setBodyJson(object.toJson());
}

Variant Message::bodyJson() const {
    if (!hasBody()) throw HttpException("Request has no body");
    // The body is consumed before it is parsed, so that a body that is not JSON does not stay in
    // the connection in front of the next message. Bodies already in memory are parsed in place:
    // the bytes stay where they are until the stream is read again.
    const IO::IStream& bodyStream = *m_body; // typeid of a plain reference: no expression to evaluate
    if (typeid(bodyStream) == typeid(ContentLengthBodyStream)) {
        auto& body = static_cast<ContentLengthBodyStream&>(*m_body);
        if (const auto rest = body.bufferedRest()) {
            body.consumeBufferedRest();
            return Json::parse(*rest);
        }
    }
    if (typeid(bodyStream) == typeid(IO::StringStream)) {
        const std::string_view text = static_cast<const IO::StringStream&>(*m_body).unread();
        m_body->setEof();
        return Json::parse(text);
    }
    return Json::parse(IO::readAll(*m_body));
}

void Message::clearBody() {
    m_body = nullBody();
    m_hasBody = false;
    m_headers.setContentLength(0);
    m_headers.erase(Headers::CONTENT_TYPE);
}

bool Message::keepAlive() const {
    const auto connection = m_headers.find("Connection");
    if (m_version.minor() != 0) return !connection || *connection == "keep-alive";
    return connection && *connection == "keep-alive";
}

void Message::clear() {
    m_version = Version(1, 1);
    m_headers.clear();
    clearBody();
}

} // namespace Zel::Net::Http
