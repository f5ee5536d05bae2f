#pragma once

#include <Zel/Json/IJsonable.h>
#include <Zel/Json/Json.h>
#include <Zel/Variant.h>
#include <concepts>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Zel::Platform {

// Turns a typed handler into the raw handler of an operation table: reads the callable's signature,
// parses the params text for it and wraps its result into a success reply.
//
// Accepted parameters (none, or one):
//  - Variant (by value or const reference): the params as parsed;
//  - a type with a static fromDto(const Variant&), which is handed the parsed params;
//  - any type a Variant converts to (std::string, int, double, ...), converted from the params.
// Accepted results: void (a bare success), a Json::IJsonable (embedded as its own JSON text), or
// anything a Variant is built from. Empty params text counts as "{}".
template <class F>
struct CallableReflection : CallableReflection<decltype(&std::remove_cvref_t<F>::operator())> {};

template <class R, class... A>
struct CallableReflection<R (*)(A...)> {
    using Result = R;
    using Arguments = std::tuple<A...>;
};
template <class R, class... A>
struct CallableReflection<R (*)(A...) noexcept> : CallableReflection<R (*)(A...)> {};
template <class R, class... A>
struct CallableReflection<R(A...)> : CallableReflection<R (*)(A...)> {};
template <class C, class R, class... A>
struct CallableReflection<R (C::*)(A...)> : CallableReflection<R (*)(A...)> {};
template <class C, class R, class... A>
struct CallableReflection<R (C::*)(A...) const> : CallableReflection<R (*)(A...)> {};
template <class C, class R, class... A>
struct CallableReflection<R (C::*)(A...) noexcept> : CallableReflection<R (*)(A...)> {};
template <class C, class R, class... A>
struct CallableReflection<R (C::*)(A...) const noexcept> : CallableReflection<R (*)(A...)> {};

namespace Detail {

template <class T>
concept FromDto = requires(const Variant& value) {
    { T::fromDto(value) } -> std::convertible_to<T>;
};

inline Variant parseParams(const std::string& params) {
    return params.empty() ? Variant::makeMap() : Json::parse(params);
}

template <class T>
T convertParams(const std::string& params) {
    if constexpr (std::is_same_v<T, Variant>) {
        return parseParams(params);
    } else if constexpr (FromDto<T>) {
        return T::fromDto(parseParams(params));
    } else {
        static_assert(
            requires(const Variant& value) { static_cast<T>(value); },
            "an operation's parameter must be Variant, have a static fromDto(const Variant&), "
            "or be a type that Variant converts to");
        return static_cast<T>(parseParams(params));
    }
}

// The reply builders live in Service; these are passed in so that this header needs no Service.
struct ReplyBuilders {
    Variant (*success)();
    Variant (*successWithData)(const Variant& data);
    Variant (*successJson)(const std::string& json);
};

template <class F>
std::function<Variant(const std::string&)> makeHandler(F&& callable, const ReplyBuilders& replies) {
    using Reflection = CallableReflection<std::remove_cvref_t<F>>;
    using Result = typename Reflection::Result;
    using Arguments = typename Reflection::Arguments;
    static_assert(std::tuple_size_v<Arguments> <= 1, "an operation takes at most one parameter: its params");

    return [callable = std::forward<F>(callable), replies](const std::string& params) mutable -> Variant {
        auto invoke = [&]() -> decltype(auto) {
            if constexpr (std::tuple_size_v<Arguments> == 0) {
                return std::invoke(callable);
            } else {
                using Parameter = std::remove_cvref_t<std::tuple_element_t<0, Arguments>>;
                return std::invoke(callable, convertParams<Parameter>(params));
            }
        };
        if constexpr (std::is_void_v<Result>) {
            invoke();
            return replies.success();
        } else if constexpr (std::is_base_of_v<Json::IJsonable, std::remove_cvref_t<Result>>) {
            return replies.successJson(invoke().toJson());
        } else {
            return replies.successWithData(Variant(invoke()));
        }
    };
}

} // namespace Detail

} // namespace Zel::Platform
