#pragma once

#include <Zel/Detail/Fnv1aHash.h>
#include <Zel/Json/IJsonable.h>
#include <Zel/Platform/CallableReflection.h>
#include <Zel/Variant.h>
#include <functional>
#include <string>
#include <unordered_map>

namespace Zel::Platform {

class IPlugin;

// Base of every service a plug-in exposes: a table of operations by exact name, each taking the
// params as JSON text and returning the reply. A reply is either a map, serialised by whoever hands
// it to the host, or a string that already is the reply's JSON text.
//
//     class Greeter : public Zel::Platform::Service {
//     public:
//         Greeter() : Service("Greeter") {
//             on("hello", [](const Zel::Variant& params) {
//                 return "Hello, " + std::string(params["name"]);
//             });
//         }
//     };
//
// Thread safety: fill the table before the plug-in is initialised; after that call is read-only
// and may run on many threads at once. Each handler guards its own state.
class ZEL_API Service {
public:
    using Handler = std::function<Variant(const std::string& params)>;

    Service();
    explicit Service(std::string reference);
    Service(const Service&);
    Service(Service&&) noexcept;
    Service& operator=(const Service&);
    Service& operator=(Service&&) noexcept;
    virtual ~Service();

    // ServiceException "Unknown operation | <reference>.<operation>" (errorRef: the reference)
    // when the table has no such operation.
    virtual Variant call(const std::string& operation, const std::string& params);

    const std::string& reference() const noexcept { return m_reference; }
    bool hasOperation(const std::string& operation) const { return m_operations.contains(operation); }

    Variant interfaces() const { return m_interfaces; }
    Service& addInterface(const std::string& name);

    // The plug-in that holds the service; InvalidOperationException before it was added to one.
    IPlugin& plugin() const;
    void _onAddedToPlugin(IPlugin& plugin) noexcept { m_plugin = &plugin; }

protected:
    void setReference(std::string reference) { m_reference = std::move(reference); }

    // A second operation of one name replaces the first.
    void addOperation(const std::string& name, Handler&& handler);

    // Declares an operation through its typed handler (see CallableReflection).
    template <class F>
    void on(const std::string& name, F&& callable) {
        static constexpr Detail::ReplyBuilders replies{
            +[]() { return resultSuccess(); },
            +[](const Variant& data) { return resultSuccess(data); },
            +[](const std::string& json) { return resultSuccessJson(json); },
        };
        addOperation(name, Detail::makeHandler(std::forward<F>(callable), replies));
    }

    // {"result":0}
    static Variant resultSuccess();
    // {"result":0,"data":...}
    static Variant resultSuccess(const Variant& data);
    // The reply's finished text with `json` inserted unquoted as "data".
    static Variant resultSuccessJson(const std::string& json);
    static Variant resultSuccessJson(const Json::IJsonable& object) {
        return resultSuccessJson(object.toJson());
    }

private:
    std::unordered_map<std::string, Handler, Zel::Detail::Fnv1aHash, std::equal_to<>> m_operations;
    std::string m_reference;
    Variant m_interfaces;
    IPlugin* m_plugin = nullptr;
};

} // namespace Zel::Platform
