#include <Zel/Log/Masking.h>

namespace Zel::Log {

namespace {

constexpr std::string_view plainQuote = "\"";
constexpr std::string_view escapedQuote = "\\\"";

// The key of a match ending at `end` and starting at or after `from`. No key is a suffix of
// another, so at most one can end at a given position; and since keys are letters that a quote
// must follow immediately, two candidate keys never overlap, which makes the order of quotes in
// the text the order in which the expression would find its matches.
std::string_view keyEndingAt(std::string_view text, std::size_t from, std::size_t end) noexcept {
    if (end == 0) return {};
    auto endsWith = [&](std::string_view key) {
        return end - from >= key.size() && text.substr(end - key.size(), key.size()) == key;
    };
    switch (text[end - 1]) {
    case 'd':
        for (std::string_view key : {"communityRead", "pwd", "password", "pinCard"}) {
            if (endsWith(key)) return key;
        }
        return {};
    case 'e':
        return endsWith("communityWrite") ? std::string_view("communityWrite") : std::string_view();
    case 'n':
        if (endsWith("pin")) return "pin";
        if (endsWith("refreshToken")) return "refreshToken";
        return {};
    default:
        return {};
    }
}

bool isSpace(char c) noexcept {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// Matches `\s*:\s*\2.*?\2` from `at`, \2 being `quote`; returns the end of the match or npos.
std::size_t matchValue(std::string_view text, std::size_t at, std::string_view quote) noexcept {
    const std::size_t size = text.size();
    while (at < size && isSpace(text[at]))
        ++at;
    if (at >= size || text[at] != ':') return std::string_view::npos;
    ++at;
    while (at < size && isSpace(text[at]))
        ++at;
    if (text.substr(at, quote.size()) != quote) return std::string_view::npos;
    // The lazy `.*?` takes the first closing quote; `.` matches neither CR nor LF.
    for (at += quote.size(); at < size; ++at) {
        const char c = text[at];
        if (c == '\n' || c == '\r') return std::string_view::npos;
        if (c == quote[0] && text.substr(at, quote.size()) == quote) return at + quote.size();
    }
    return std::string_view::npos;
}

} // namespace

void hidePrivateStringInJson(std::string_view text, std::string& out) {
    std::size_t copied = 0; // text before this offset is already in `out`
    std::size_t search = 0;
    for (;;) {
        const std::size_t quoteAt = text.find('"', search);
        if (quoteAt == std::string_view::npos) break;
        search = quoteAt + 1;

        const bool escaped = quoteAt > 0 && text[quoteAt - 1] == '\\';
        const std::size_t keyEnd = escaped ? quoteAt - 1 : quoteAt;
        const std::string_view key = keyEndingAt(text, copied, keyEnd);
        if (key.empty()) continue;
        const std::string_view quote = escaped ? escapedQuote : plainQuote;
        const std::size_t end = matchValue(text, quoteAt + 1, quote);
        if (end == std::string_view::npos) continue;

        out.append(text.substr(copied, keyEnd - copied)); // up to and including the key
        out += quote;
        out += ':';
        out += quote;
        out += "****";
        out += quote;
        copied = end;
        search = end;
    }
    out.append(text.substr(copied));
}

std::string hidePrivateStringInJson(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    hidePrivateStringInJson(text, out);
    return out;
}

} // namespace Zel::Log
