#pragma once

#include <Zel/Detail/Fnv1aHash.h>
#include <Zel/Export.h>
#include <functional>
#include <memory>
#include <shared_mutex>
#include <string>
#include <typeinfo>
#include <unordered_map>

namespace Zel {

// Constructors by reference: each create calls the registered function again and hands back a new
// product. A plug-in keys them by the run-time type name of the product, so create<T>() finds what
// add<T>(function) registered.
//
// Copies share the registered functions (they are immutable once registered). Thread safety:
// registering, creating and clearing may run concurrently.
class ZEL_API Factory {
public:
    class ZEL_API FactoryLambda {
    public:
        virtual ~FactoryLambda();
        virtual const std::type_info& functionType() const noexcept = 0;
    };

    // F is a function without arguments that returns a shared pointer of the product type.
    template <class F>
    class FactoryLambdaT final : public FactoryLambda {
    public:
        explicit FactoryLambdaT(F function) : m_function(std::move(function)) {}
        const std::type_info& functionType() const noexcept override { return typeid(F); }
        auto operator()() const { return m_function(); }

    private:
        F m_function;
    };

    template <class T>
    using Function = std::function<std::shared_ptr<T>()>;

    Factory();
    ~Factory();
    Factory(const Factory& other);
    Factory(Factory&& other) noexcept;
    Factory& operator=(const Factory& other);
    Factory& operator=(Factory&& other) noexcept;

    template <class T>
    static std::string referenceOf() {
        return typeid(T).name();
    }

    // A second registration under one reference replaces the first.
    template <class T>
    Factory& add(const std::string& reference, Function<T> function) {
        addLambda(reference, std::make_shared<const FactoryLambdaT<Function<T>>>(std::move(function)));
        return *this;
    }
    template <class T>
    Factory& add(Function<T> function) {
        return add<T>(referenceOf<T>(), std::move(function));
    }

    bool has(const std::string& reference) const;

    // NoFactoryException "Factory: no factory for the reference ..." when nothing is registered;
    // GenericException "Factory: invalid factory type for the reference ..." when the function
    // registered there makes another type.
    template <class T>
    std::shared_ptr<T> create(const std::string& reference) const {
        const auto lambda = find(reference);
        if (lambda->functionType() != typeid(Function<T>)) throwInvalidType(reference);
        return (*static_cast<const FactoryLambdaT<Function<T>>*>(lambda.get()))();
    }
    template <class T>
    std::shared_ptr<T> create() const {
        return create<T>(referenceOf<T>());
    }

    std::size_t size() const;
    void clear();

private:
    using LambdaPointer = std::shared_ptr<const FactoryLambda>;

    void addLambda(const std::string& reference, LambdaPointer lambda);
    LambdaPointer find(const std::string& reference) const;
    [[noreturn]] static void throwInvalidType(const std::string& reference);

    mutable std::shared_mutex m_mutex;
    std::unordered_map<std::string, LambdaPointer, Detail::Fnv1aHash, std::equal_to<>> m_lambdas;
};

} // namespace Zel
