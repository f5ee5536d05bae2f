#include <Zel/ArgumentException.h>
#include <Zel/StringUtils.h>
#include <Zel/Detail/SecureRandom.h>
#include <Zel/Uuid.h>
#include <Zel/Variant.h>
#include <Zel/VariantInvalidOperationException.h>
#include <chrono>
#include <mutex>

namespace Zel {

namespace {

// Reads 32 hex digits, with hyphens exactly at the canonical places when `hyphens` is set.
bool readHex(std::string_view text, bool hyphens, Uuid::Bytes& bytes) noexcept {
    std::size_t pos = 0;
    for (std::size_t i = 0; i < 16; ++i) {
        if (hyphens && (i == 4 || i == 6 || i == 8 || i == 10)) {
            if (text[pos] != '-') return false;
            ++pos;
        }
        const int high = StringUtils::hexDigitValue(text[pos]);
        const int low = StringUtils::hexDigitValue(text[pos + 1]);
        if (high < 0 || low < 0) return false;
        bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
        pos += 2;
    }
    return true;
}

void setVersionAndVariant(Uuid::Bytes& bytes, int version) noexcept {
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | version << 4);
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80); // RFC 9562 variant 10xx
}

// The last timestamp and counter handed out by timeOrdered(); guarded by its mutex.
struct TimeOrderedState {
    std::mutex mutex;
    std::int64_t milliseconds = -1;
    std::uint32_t counter = 0;
};

TimeOrderedState& timeOrderedState() {
    static TimeOrderedState state;
    return state;
}

} // namespace

Uuid Uuid::random() {
    Bytes bytes;
    Detail::secureRandom(bytes.data(), bytes.size());
    setVersionAndVariant(bytes, 4);
    return Uuid(bytes);
}

Uuid Uuid::timeOrdered() {
    Bytes bytes;
    Detail::secureRandom(bytes.data(), bytes.size());
    const std::int64_t now = std::chrono::duration_cast<std::chrono::milliseconds>(
                                 std::chrono::system_clock::now().time_since_epoch())
                                 .count();
    std::int64_t milliseconds = 0;
    std::uint32_t counter = 0;
    {
        auto& state = timeOrderedState();
        std::lock_guard lock(state.mutex);
        if (now > state.milliseconds) {
            state.milliseconds = now;
            // A fresh millisecond starts the counter at a random point in its lower half, so ids
            // are hard to guess and there is room for at least 2048 more in the same millisecond.
            state.counter = (static_cast<std::uint32_t>(bytes[6]) << 8 | bytes[7]) & 0x7FF;
        } else if (++state.counter > 0xFFF) {
            // Counter exhausted, or the clock stands still or went back: borrow the next
            // millisecond rather than ever repeat or reorder.
            ++state.milliseconds;
            state.counter = 0;
        }
        milliseconds = state.milliseconds;
        counter = state.counter;
    }
    for (int i = 0; i < 6; ++i)
        bytes[i] = static_cast<std::uint8_t>(milliseconds >> (40 - 8 * i));
    bytes[6] = static_cast<std::uint8_t>(counter >> 8);
    bytes[7] = static_cast<std::uint8_t>(counter);
    setVersionAndVariant(bytes, 7);
    return Uuid(bytes);
}

std::optional<Uuid> Uuid::tryParse(std::string_view text) noexcept {
    constexpr std::string_view urn = "urn:uuid:";
    if (text.size() > urn.size() && text.substr(0, urn.size()) == urn)
        text.remove_prefix(urn.size());
    else if (text.size() == 38 && text.front() == '{' && text.back() == '}')
        text = text.substr(1, 36);
    Bytes bytes;
    if (text.size() == 36 && readHex(text, true, bytes)) return Uuid(bytes);
    if (text.size() == 32 && readHex(text, false, bytes)) return Uuid(bytes);
    return std::nullopt;
}

Uuid Uuid::parse(std::string_view text) {
    if (auto uuid = tryParse(text)) return *uuid;
    throw ArgumentException("Invalid UUID | text=" + std::string(text.substr(0, 64)));
}

Uuid Uuid::fromVariant(const Variant& value) {
    if (value.isNull()) return Uuid();
    if (!value.isString()) throw VariantInvalidOperationException("Zel::Uuid::fromVariant", value);
    return parse(static_cast<std::string>(value));
}

Variant Uuid::toVariant() const {
    Variant value;
    value = toString();
    return value;
}

std::string Uuid::toString() const {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += digits[m_bytes[i] >> 4];
        text += digits[m_bytes[i] & 0x0F];
    }
    return text;
}

std::int64_t Uuid::unixMilliseconds() const noexcept {
    std::int64_t milliseconds = 0;
    for (int i = 0; i < 6; ++i)
        milliseconds = milliseconds << 8 | m_bytes[i];
    return milliseconds;
}

} // namespace Zel
