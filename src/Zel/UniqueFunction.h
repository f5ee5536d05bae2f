#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace Zel {

template <class Signature>
class UniqueFunction;

// A move-only std::function: it can hold callables that own move-only state (a promise, a
// unique_ptr), which task callbacks and event-loop posts often do. Calling an empty one throws
// std::bad_function_call.
template <class R, class... Args>
class UniqueFunction<R(Args...)> {
public:
    UniqueFunction() noexcept = default;
    UniqueFunction(std::nullptr_t) noexcept {}

    template <class F>
        requires(!std::is_same_v<std::decay_t<F>, UniqueFunction> && std::is_invocable_r_v<R, std::decay_t<F>&, Args...>)
    UniqueFunction(F&& callable) : m_callable(std::make_unique<Holder<std::decay_t<F>>>(std::forward<F>(callable))) {}

    UniqueFunction(UniqueFunction&&) noexcept = default;
    UniqueFunction& operator=(UniqueFunction&&) noexcept = default;
    UniqueFunction(const UniqueFunction&) = delete; // the held callable may own move-only state
    UniqueFunction& operator=(const UniqueFunction&) = delete;

    UniqueFunction& operator=(std::nullptr_t) noexcept {
        m_callable.reset();
        return *this;
    }

    explicit operator bool() const noexcept { return m_callable != nullptr; }

    R operator()(Args... args) const {
        if (!m_callable) throw std::bad_function_call();
        return m_callable->call(std::forward<Args>(args)...);
    }

private:
    struct Callable {
        virtual ~Callable() = default;
        virtual R call(Args... args) = 0;
    };

    template <class F>
    struct Holder final : Callable {
        explicit Holder(F&& f) : function(std::move(f)) {}
        explicit Holder(const F& f) : function(f) {}
        R call(Args... args) override { return std::invoke(function, std::forward<Args>(args)...); }
        F function;
    };

    std::unique_ptr<Callable> m_callable;
};

} // namespace Zel
