#pragma once

#include <Zel/Json/Json.h>
#include <Zel/Platform/PlatformCallback.h>
#include <Zel/Platform/ReplyAllocator.h>
#include <exception>
#include <functional>
#include <mutex>
#include <string>

// An in-process host for the tests: its callback hands every outgoing call to `handler`, which
// returns the reply text, and stores that text in a buffer from the shared reply allocator as a
// real host does. Only one TestHost may exist at a time.
class TestHost {
public:
    using Handler = std::function<std::string(const std::string& service, const std::string& operation,
                                              const std::string& params)>;

    explicit TestHost(Handler handler) {
        current() = this;
        m_handler = std::move(handler);
    }
    ~TestHost() { current() = nullptr; }
    TestHost(const TestHost&) = delete;
    TestHost& operator=(const TestHost&) = delete;

    static void callback(const char* service, std::uint64_t serviceLength, const char* operation,
                         std::uint64_t operationLength, const char* params, std::uint64_t paramsLength,
                         char** reply, std::uint64_t* replyLength) {
        const std::string text =
            current()->m_handler(std::string(service, serviceLength), std::string(operation, operationLength),
                                 std::string(params, paramsLength));
        Zel::Platform::storeReply(text, reply, replyLength);
    }

    static Zel::Platform::PlatformCallback platformCallback() { return &TestHost::callback; }

    // The init document that hands this host's callback to a plug-in.
    static std::string initDocument() {
        char address[32];
        std::snprintf(address, sizeof address, "%llx",
                      static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(&TestHost::callback)));
        return std::string(R"({"platformCallback":")") + address + "\"}";
    }

private:
    static TestHost*& current() {
        static TestHost* host = nullptr;
        return host;
    }

    Handler m_handler;
};

// The text of what `f` throws, or "no exception"; an exception of another type fails the test.
template <class Exception = std::exception, class F>
std::string messageOf(F&& f) {
    try {
        f();
    } catch (const Exception& error) {
        return error.what();
    }
    return "no exception";
}
