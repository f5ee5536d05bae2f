#pragma once

#include <Zel/Platform/ServiceException.h>
#include <Zel/Variant.h>
#include <cstdint>
#include <string>

namespace ZelHost {

// Reading the params of a host operation; a missing or mistyped one is the caller's fault and
// comes back as the error reply "Bad parameter | name=..." (errRef "badRequest").
[[noreturn]] inline void badParameter(const char* name) {
    throw Zel::Platform::ServiceException("badRequest", std::string("Bad parameter | name=") + name);
}

inline const Zel::Variant* optionalParam(const Zel::Variant& params, const char* name) {
    if (!params.isMap()) badParameter(name);
    const Zel::Variant* value = params.find(name);
    return value == nullptr || value->isNull() ? nullptr : value;
}

inline std::string stringParam(const Zel::Variant& params, const char* name) {
    const Zel::Variant* value = optionalParam(params, name);
    if (value == nullptr || !value->isString()) badParameter(name);
    return value->_string();
}

inline std::int64_t integerParam(const Zel::Variant& params, const char* name) {
    const Zel::Variant* value = optionalParam(params, name);
    if (value == nullptr || !value->isInteger()) badParameter(name);
    return static_cast<std::int64_t>(*value);
}

inline Zel::Variant anyParam(const Zel::Variant& params, const char* name) {
    const Zel::Variant* value = optionalParam(params, name);
    return value == nullptr ? Zel::Variant() : *value;
}

} // namespace ZelHost
