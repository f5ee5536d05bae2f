#pragma once

#include <Zel/Detail/Fnv1aHash.h>
#include <Zel/Export.h>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <typeinfo>
#include <unordered_map>

namespace Zel {

// Shared instances by reference. A plug-in keys them by the run-time type name of what it stores,
// so add<T>(instance) and get<T>() find each other without a string in the caller's code.
//
// Thread safety: every operation takes the locator's lock.
class ZEL_API ServiceLocator {
public:
    class ZEL_API Instance {
    public:
        virtual ~Instance();
        virtual const std::type_info& pointerType() const noexcept = 0;
    };

    // Holds one shared instance; P is the shared pointer type it was added as.
    template <class P>
    class InstanceT final : public Instance {
    public:
        explicit InstanceT(P pointer) : m_pointer(std::move(pointer)) {}
        const std::type_info& pointerType() const noexcept override { return typeid(P); }
        const P& pointer() const noexcept { return m_pointer; }

    private:
        P m_pointer;
    };

    ServiceLocator();
    ~ServiceLocator();
    ServiceLocator(const ServiceLocator&) = delete;
    ServiceLocator& operator=(const ServiceLocator&) = delete;

    template <class T>
    static std::string referenceOf() {
        return typeid(T).name();
    }

    // GenericException "Service Locator: instance already exists | reference=..." when taken.
    template <class T>
    void add(const std::string& reference, std::shared_ptr<T> instance) {
        addInstance(reference, std::make_unique<InstanceT<std::shared_ptr<T>>>(std::move(instance)));
    }
    template <class T>
    void add(std::shared_ptr<T> instance) {
        add<T>(referenceOf<T>(), std::move(instance));
    }

    // Null when nothing is stored under the reference; GenericException "Service Locator: invalid
    // instance type | reference=..." when something of another type is.
    template <class T>
    std::shared_ptr<T> get(const std::string& reference) const {
        std::shared_ptr<T> result;
        visit(reference, [&](const Instance& instance) {
            if (instance.pointerType() != typeid(std::shared_ptr<T>)) throwInvalidType(reference);
            result = static_cast<const InstanceT<std::shared_ptr<T>>&>(instance).pointer();
        });
        return result;
    }
    template <class T>
    std::shared_ptr<T> get() const {
        return get<T>(referenceOf<T>());
    }

    bool has(const std::string& reference) const;
    std::size_t size() const;
    void clear();

private:
    void addInstance(const std::string& reference, std::unique_ptr<Instance> instance);
    // Runs `found` under the lock when the reference is present.
    void visit(const std::string& reference, const std::function<void(const Instance&)>& found) const;
    [[noreturn]] static void throwInvalidType(const std::string& reference);

    mutable std::mutex m_mutex;
    std::unordered_map<std::string, std::unique_ptr<Instance>, Detail::Fnv1aHash, std::equal_to<>>
        m_instances;
};

} // namespace Zel
