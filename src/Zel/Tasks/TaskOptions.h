#pragma once

#include <Zel/Export.h>
#include <Zel/Tasks/Uniqueness.h>
#include <chrono>
#include <cstdint>
#include <string>

namespace Zel {
class Variant;
}

namespace Zel::Tasks {

// How a task is retried, de-duplicated, grouped and logged. A plain value; setters return the object
// so that options read as one expression:
//
//     TaskOptions().setRetryCount(3).setRetryMinBackoff(1s).setReference("mail:42").setTag(7)
class ZEL_API TaskOptions {
public:
    TaskOptions() = default;

    // Retries allowed after a failed run; -1 retries without limit.
    int retryCount() const noexcept { return m_retryCount; }
    TaskOptions& setRetryCount(int count);
    TaskOptions& retryIndefinitely();

    std::chrono::milliseconds retryMinBackoff() const noexcept { return m_retryMinBackoff; }
    TaskOptions& setRetryMinBackoff(std::chrono::milliseconds backoff);
    std::chrono::milliseconds retryMaxBackoff() const noexcept { return m_retryMaxBackoff; }
    TaskOptions& setRetryMaxBackoff(std::chrono::milliseconds backoff);

    // The de-duplication key; empty for none.
    const std::string& reference() const noexcept { return m_reference; }
    TaskOptions& setReference(std::string reference);
    Uniqueness uniqueness() const noexcept { return m_uniqueness; }
    TaskOptions& setUniqueness(Uniqueness uniqueness);

    int tag() const noexcept { return m_tag; }
    TaskOptions& setTag(int tag);

    // Installed as the worker thread's log context while the task runs.
    int logSubsystem() const noexcept { return m_logSubsystem; }
    TaskOptions& setLogSubsystem(int subsystem);
    const std::string& logContext() const noexcept { return m_logContext; }
    TaskOptions& setLogContext(std::string context);

    // The delay before retry number `retryNumber` (1 for the first): retryMinBackoff doubled for each
    // earlier retry, at most 2^7 times, and never more than retryMaxBackoff.
    std::chrono::milliseconds retryBackoff(int retryNumber) const noexcept;

    // {"retryCount":..,"retryMinBackoff":..,"retryMaxBackoff":..,"reference":..,"logContext":..,
    //  "logSubsystem":..,"uniqueness":..,"tag":..} in this order.
    std::string toJson() const;
    // The defaults, overridden by each of those keys that the map holds (the back-offs as 32-bit
    // integers). Anything but a map leaves the defaults.
    static TaskOptions fromDto(const Variant& dto);

    friend bool operator==(const TaskOptions&, const TaskOptions&) = default;

private:
    std::int32_t m_retryCount = 0;
    std::chrono::milliseconds m_retryMinBackoff{5000};
    std::chrono::milliseconds m_retryMaxBackoff{30000};
    std::string m_reference;
    Uniqueness m_uniqueness = Uniqueness::Waiting;
    std::int32_t m_tag = 0;
    std::int32_t m_logSubsystem = 0;
    std::string m_logContext;
};

} // namespace Zel::Tasks
