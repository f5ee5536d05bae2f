#include <Zel/Json/Json.h>
#include <Zel/Json/Object.h>
#include <Zel/Tasks/TaskOptions.h>
#include <Zel/Variant.h>
#include <algorithm>
#include <cmath>
#include <utility>

namespace Zel::Tasks {

TaskOptions& TaskOptions::setRetryCount(int count) {
    m_retryCount = count;
    return *this;
}

TaskOptions& TaskOptions::retryIndefinitely() {
    m_retryCount = -1;
    return *this;
}

TaskOptions& TaskOptions::setRetryMinBackoff(std::chrono::milliseconds backoff) {
    m_retryMinBackoff = backoff;
    return *this;
}

TaskOptions& TaskOptions::setRetryMaxBackoff(std::chrono::milliseconds backoff) {
    m_retryMaxBackoff = backoff;
    return *this;
}

TaskOptions& TaskOptions::setReference(std::string reference) {
    m_reference = std::move(reference);
    return *this;
}

TaskOptions& TaskOptions::setUniqueness(Uniqueness uniqueness) {
    m_uniqueness = uniqueness;
    return *this;
}

TaskOptions& TaskOptions::setTag(int tag) {
    m_tag = tag;
    return *this;
}

TaskOptions& TaskOptions::setLogSubsystem(int subsystem) {
    m_logSubsystem = subsystem;
    return *this;
}

TaskOptions& TaskOptions::setLogContext(std::string context) {
    m_logContext = std::move(context);
    return *this;
}

std::chrono::milliseconds TaskOptions::retryBackoff(int retryNumber) const noexcept {
    // The exponent stops at 7 on purpose: without a lower maximum, a retry never waits more than
    // 128 times the minimum.
    const int exponent = std::clamp(retryNumber, 1, 8) - 1;
    const double backoff = static_cast<double>(m_retryMinBackoff.count()) * std::ldexp(1.0, exponent);
    const double capped = std::min(backoff, static_cast<double>(m_retryMaxBackoff.count()));
    return std::chrono::milliseconds(static_cast<std::int64_t>(capped));
}

std::string TaskOptions::toJson() const {
    Json::Object object;
    object.add("retryCount", Variant(m_retryCount));
    object.add("retryMinBackoff", Variant(static_cast<std::int64_t>(m_retryMinBackoff.count())));
    object.add("retryMaxBackoff", Variant(static_cast<std::int64_t>(m_retryMaxBackoff.count())));
    object.addJson("reference", Json::_encodeString(m_reference));
    object.addJson("logContext", Json::_encodeString(m_logContext));
    object.add("logSubsystem", Variant(m_logSubsystem));
    object.add("uniqueness", Variant(static_cast<std::int32_t>(m_uniqueness)));
    object.add("tag", Variant(m_tag));
    return object.json();
}

TaskOptions TaskOptions::fromDto(const Variant& dto) {
    TaskOptions options;
    if (!dto.isMap()) return options;
    if (const Variant* value = dto.find("retryCount")) options.m_retryCount = static_cast<int>(*value);
    if (const Variant* value = dto.find("retryMinBackoff")) {
        options.m_retryMinBackoff = std::chrono::milliseconds(static_cast<int>(*value));
    }
    if (const Variant* value = dto.find("retryMaxBackoff")) {
        options.m_retryMaxBackoff = std::chrono::milliseconds(static_cast<int>(*value));
    }
    if (const Variant* value = dto.find("reference")) options.m_reference = static_cast<std::string>(*value);
    if (const Variant* value = dto.find("uniqueness")) {
        options.m_uniqueness = static_cast<Uniqueness>(static_cast<int>(*value));
    }
    if (const Variant* value = dto.find("tag")) options.m_tag = static_cast<int>(*value);
    if (const Variant* value = dto.find("logSubsystem")) options.m_logSubsystem = static_cast<int>(*value);
    if (const Variant* value = dto.find("logContext")) {
        options.m_logContext = static_cast<std::string>(*value);
    }
    return options;
}

} // namespace Zel::Tasks
