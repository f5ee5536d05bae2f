#include <Zel/Detail/VariantAccess.h>
#include <Zel/Json/Detail/Writer.h>
#include <Zel/Json/Json.h>
#include <Zel/Json/Object.h>
#include <Zel/Platform/PluginModule.h>
#include <Zel/Platform/ServiceException.h>
#include <exception>
#include <string_view>

namespace Zel::Platform {

namespace {

std::string text(const char* data, std::uint64_t length) {
    return data == nullptr ? std::string() : std::string(data, length);
}

// A map reply is written straight into the reply buffer's text, through a writer that each thread
// keeps: no intermediate string, and no allocation for the writer once it has grown.
void storeReplyOf(const Variant& reply, char** out, std::uint64_t* outLength) {
    if (reply.isString()) {
        storeReply(Zel::Detail::VariantAccess::string(reply), out, outLength);
        return;
    }
    thread_local Json::Detail::Writer writer;
    writer.reset();
    writer.write(reply);
    storeReply(writer.written(), out, outLength);
}

// The last resort when even the error reply cannot be built or stored (out of memory): an empty
// reply, which the host reads as malformed rather than as a crash.
void store(std::string_view reply, char** out, std::uint64_t* outLength) noexcept {
    try {
        storeReply(reply, out, outLength);
    } catch (...) {
        *out = nullptr;
        *outLength = 0;
    }
}

// {"result":<errorResult>,"errMsg":"<message>"}, spelled out at compile time for the replies that
// are given when building one with the JSON writer has already failed.
template <std::size_t N>
class FixedErrorReply {
public:
    consteval explicit FixedErrorReply(const char (&message)[N]) {
        append(R"({"result":)");
        char digits[12]{};
        int count = 0;
        for (int value = ServiceException::errorResult; value != 0; value /= 10)
            digits[count++] = static_cast<char>('0' + value % 10);
        while (count > 0)
            m_text[m_size++] = digits[--count];
        append(R"(,"errMsg":")");
        append(message);
        append(R"("})");
    }

    std::string text() const { return std::string(m_text, m_size); }

private:
    template <std::size_t M>
    consteval void append(const char (&part)[M]) {
        for (std::size_t i = 0; i + 1 < M; ++i)
            m_text[m_size++] = part[i];
    }

    char m_text[N + 40]{};
    std::size_t m_size = 0;
};

constexpr FixedErrorReply unknownExceptionReply("Unknown exception");
constexpr FixedErrorReply outOfMemoryReply("Out of memory");

} // namespace

PluginModule::PluginModule(CreatePlugin createPlugin) : m_createPlugin(std::move(createPlugin)) {}

PluginModule::~PluginModule() = default;

std::string PluginModule::replyText(const Variant& reply) {
    return reply.isString() ? Zel::Detail::VariantAccess::string(reply) : reply.toJson();
}

std::string PluginModule::errorReplyText() noexcept {
    try {
        try {
            throw;
        } catch (const ServiceException& error) {
            return error.toJson();
        } catch (const std::exception& error) {
            return Json::Object()
                .addJson("result", std::to_string(ServiceException::errorResult))
                .add("errMsg", error.what())
                .json();
        } catch (...) {
            return unknownExceptionReply.text();
        }
    } catch (...) {
        return outOfMemoryReply.text();
    }
}

std::string PluginModule::errorReplyText(const std::string& service, const std::string& operation) noexcept {
    try {
        try {
            throw;
        } catch (ServiceException& error) {
            if (error.operation().service.empty() && error.operation().operation.empty())
                error.setOperation(Operation{service, operation, {}});
            return error.toJson();
        } catch (...) {
            return errorReplyText();
        }
    } catch (...) {
        return errorReplyText();
    }
}

void PluginModule::init(const char* document, std::uint64_t documentLength, char** reply,
                        std::uint64_t* replyLength) noexcept {
    try {
        if (!m_plugin || m_plugin->state() == Plugin::State::Deinitialized) {
            m_plugin.reset();
            m_plugin = m_createPlugin();
            if (!m_plugin) throw GenericException("Plug-in module: the plug-in factory returned null");
        }
        storeReplyOf(m_plugin->init(text(document, documentLength)), reply, replyLength);
    } catch (...) {
        store(errorReplyText(), reply, replyLength);
    }
}

void PluginModule::call(const char* service, std::uint64_t serviceLength, const char* operation,
                        std::uint64_t operationLength, const char* params, std::uint64_t paramsLength,
                        char** reply, std::uint64_t* replyLength) noexcept {
    std::string serviceName;
    std::string operationName;
    try {
        serviceName = text(service, serviceLength);
        operationName = text(operation, operationLength);
        // Before the first init there is no plug-in yet; refuse as an uninitialised one would.
        if (!m_plugin) throw GenericException("Platform plugin is not initialized");
        const Variant result = m_plugin->call(serviceName, operationName, text(params, paramsLength));
        storeReplyOf(result, reply, replyLength);
    } catch (...) {
        store(errorReplyText(serviceName, operationName), reply, replyLength);
    }
}

void PluginModule::deinit(char** reply, std::uint64_t* replyLength) noexcept {
    try {
        if (!m_plugin) throw GenericException("Platform plugin is not initialized");
        m_plugin->deinit();
        store(R"({"result":0})", reply, replyLength);
    } catch (...) {
        store(errorReplyText(), reply, replyLength);
    }
}

} // namespace Zel::Platform
